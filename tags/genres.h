// Genre number to name tables (see genres.cpp for their contents and wording).
#pragma once

#include <cstddef>

namespace kxmp3 {

constexpr size_t kGenreNameCount = 157;
constexpr size_t kApeGenreNameCount = 148;
// Index of "Unknown": ID3v1 genre bytes of this value and above name it.
constexpr size_t kGenreUnknown = 148;
// Entries 0 to kDialogGenreCount - 1 make the dialog's genre list.
constexpr size_t kDialogGenreCount = 149;

extern const char16_t* const GenreNames[kGenreNameCount];
extern const char16_t* const ApeGenreNames[kApeGenreNameCount];

}  // namespace kxmp3
