// The plug-in tests link the plug-in statically, without the module's load hook, so
// the process-wide decoder tables are built here once before any test runs (the
// module builds them in its first attach).
#include <gtest/gtest.h>

#include "engine/tables.h"

namespace {

class DecoderTablesEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { kxmp3::InitDecoderTables(); }
};

const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new DecoderTablesEnvironment);

}  // namespace
