// TIME arguments of kxhost decode: every accepted form, the rejected ones, and the
// conversion to a sample index without floating-point rounding.
#include <gtest/gtest.h>

#include "time_value.h"

namespace {

using kxhost::ParseTime;
using kxhost::TimeToSamples;
using kxhost::TimeValue;

uint64_t Nanos(const char* text) {
  const auto t = ParseTime(text);
  EXPECT_TRUE(t.has_value()) << text;
  return t ? t->nanoseconds : ~0ull;
}

TEST(TimeValue, AcceptedForms) {
  EXPECT_EQ(Nanos("0"), 0u);
  EXPECT_EQ(Nanos("90"), 90'000'000'000u);
  EXPECT_EQ(Nanos("12.5"), 12'500'000'000u);
  EXPECT_EQ(Nanos("1:30"), 90'000'000'000u);
  EXPECT_EQ(Nanos("01:02.250"), 62'250'000'000u);
  EXPECT_EQ(Nanos("1:02:03.5"), 3'723'500'000'000u);
  EXPECT_EQ(Nanos("0.000000001"), 1u);
  EXPECT_EQ(Nanos("75:00"), 4'500'000'000'000u);  // minutes are not limited without hours
}

TEST(TimeValue, RejectedForms) {
  for (const char* bad : {"", "abc", "-1", "+1", "1:60", "1:60:00", "1:2:3:4", "1.", ".5", "1.1234567891", "1:",
                          ":1", "1 ", " 1", "1e3", "1,5", "99999999999999999999"}) {
    EXPECT_FALSE(ParseTime(bad).has_value()) << "'" << bad << "'";
  }
}

TEST(TimeValue, SamplesAreRoundedToTheNearest) {
  EXPECT_EQ(TimeToSamples(TimeValue{1'000'000'000}, 44100), 44100u);
  EXPECT_EQ(TimeToSamples(TimeValue{10'000'000}, 44100), 441u);  // 0.01 s: no 440.99999
  EXPECT_EQ(TimeToSamples(TimeValue{Nanos("0:03.3")}, 44100), 145530u);
  // Half a sample rounds up; just below rounds down.
  EXPECT_EQ(TimeToSamples(TimeValue{62'500'000}, 8), 1u);   // 0.5 sample
  EXPECT_EQ(TimeToSamples(TimeValue{62'499'999}, 8), 0u);
  // Ten hours at 48 kHz does not overflow.
  EXPECT_EQ(TimeToSamples(TimeValue{36'000'000'000'000}, 48000), 1'728'000'000u);
}

}  // namespace
