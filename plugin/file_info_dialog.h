// The file-information dialog: a modeless window from the host's template 203 that
// shows the stream's description (control 1000), its name (1009), the genre list
// (combo box 1002) and the tag fields. Declared here for the decoder and for tests.
#pragma once

#include <cstdint>
#include <string>

#include "../host/kx_types.h"
#include "decoder_state.h"

namespace kxmp3 {

// Dialog template and control identifiers.
constexpr int kFileInfoTemplate = 203;
constexpr int kControlOk = 1;
constexpr int kControlCancel = 2;
constexpr int kControlDescription = 1000;
constexpr int kControlGenre = 1002;
constexpr int kControlName = 1009;
constexpr int kControlTitle = 1010;
constexpr int kControlArtist = 1011;
constexpr int kControlAlbum = 1012;
constexpr int kControlTrack = 1013;
constexpr int kControlYear = 1014;
constexpr int kControlComment = 1015;
// The tag controls, in the comment record's field order (artist, title, album,
// year, track, genre, comment).
constexpr int kTagControls[7] = {kControlArtist, kControlTitle, kControlAlbum, kControlYear,
                                 kControlTrack,  kControlGenre, kControlComment};
// Longest description text, terminator included.
constexpr std::size_t kDescriptionChars = 2048;
// Window property that ties the dialog to its decoder object.
constexpr char16_t kDialogProperty[] = u"ikxmp3";

// The text of control 1000 for an opened decoder: format lines, then one line per
// ReplayGain value present. At most kDescriptionChars - 1 characters.
std::u16string BuildFileInfoText(const DecoderState& state);

// The dialog procedure (WM_INITDIALOG's parameter is the Class_KXMP3 object).
intptr_t FileInfoDialogProc(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam);

}  // namespace kxmp3
