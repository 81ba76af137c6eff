// The file-information dialog: FileInfoDialog opens it (one per object, modeless,
// holding a reference to the object while it is open), the dialog procedure fills
// it on initialisation and closes it on OK or Cancel, and its destruction hands
// the reference back.
#include "file_info_dialog.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "../host/kx_comment_record.h"
#include "../host/kxcore.h"
#include "../platform/kx_platform.h"
#include "../tags/genres.h"
#include "kxmp3.h"

namespace kxmp3 {

namespace {

const char16_t* const kFileTypeNames[] = {u"Unknown", u"RIFF WAVE (MP3)", u"MP3", u"RIFF MP3", u"ID3 v2.x"};
const char16_t* const kMpegVersionNames[] = {u"UnKnown", u"1.0", u"2.0", u"2.5"};
const char16_t* const kEmphasisNames[] = {u"None", u"50/15\u03BCs", u"Unknown", u"CCITT J.17"};

// printf-style formatting of ASCII text, appended as UTF-16.
template <typename... Args>
void AppendFormat(std::u16string& out, const char* format, Args... args) {
  char buffer[256];
  const int n = std::snprintf(buffer, sizeof(buffer), format, args...);
  for (int i = 0; i < n && i < static_cast<int>(sizeof(buffer)) - 1; ++i) {
    out += static_cast<char16_t>(static_cast<unsigned char>(buffer[i]));
  }
}

void Append(std::u16string& out, const char16_t* text) {
  if (text != nullptr) out += text;
}

// A zero-terminated string of a fixed-size UTF-16 field (never past its end).
std::u16string FieldText(const char16_t* field, std::size_t capacity) {
  std::size_t n = 0;
  while (n < capacity && field[n] != 0) ++n;
  return std::u16string(field, n);
}

const char16_t* OnOff(uint32_t value) { return value != 0 ? u"On" : u"Off"; }

// The text of comment-record field `index` (empty when the record is malformed).
std::u16string CommentFieldText(const void* record, int index) {
  const auto* header = static_cast<const CommentRecordHeader*>(record);
  if (header->size < sizeof(CommentRecordHeader)) return {};
  const std::size_t units = (header->size - sizeof(CommentRecordHeader)) / 2;
  const int32_t offset = header->fields[index].offset;
  if (offset < 0 || static_cast<std::size_t>(offset) >= units) return {};
  const auto* text = reinterpret_cast<const char16_t*>(static_cast<const uint8_t*>(record) +
                                                       sizeof(CommentRecordHeader)) + offset;
  return FieldText(text, units - static_cast<std::size_t>(offset));
}

}  // namespace

std::u16string BuildFileInfoText(const DecoderState& state) {
  const MP3Info& info = state.info;
  const AudioFileInfo& g = info.generic;
  std::u16string text;
  text += u"FileType = ";
  Append(text, info.containerType < 5 ? kFileTypeNames[info.containerType] : u"Unknown");
  // 64-bit fields as plain unsigned decimals.
  AppendFormat(text, "\nFileSize = %" PRIu64 " bytes\nPlaySize = %" PRIu64 " bytes\n", g.dataLength,
               g.totalPcmBytes);
  const uint64_t ms = g.playTimeMs;
  AppendFormat(text, "PlayTime = %2" PRIu64 ":%02" PRIu64 ".%03" PRIu64 "\n", ms / 60000, ms / 1000 % 60, ms % 1000);
  text += u"MPEG-";
  Append(text, info.mpegVersion < 4 ? kMpegVersionNames[info.mpegVersion] : kMpegVersionNames[0]);
  AppendFormat(text, ", Layer-%d\nBitRate = %d kbps (", static_cast<int>(info.layer),
               static_cast<int>(g.bitrateKbps));
  text += (g.formatFlags & AFI_FLAG_VBR) != 0 ? u"VBR" : u"CBR";
  AppendFormat(text, ")\nSampleRate = %d Hz\nMode = ", static_cast<int>(g.sampleRate));
  text += FieldText(g.channelModeName, 64);
  text += u"\nError Protection = ";
  Append(text, OnOff(info.errorProtection));
  text += u"\nPrivateBit = ";
  Append(text, OnOff(info.privateBit));
  text += u"\nCopyRight = ";
  Append(text, OnOff(info.copyrightBit));
  text += u"\nOriginal = ";
  Append(text, OnOff(info.originalBit));
  text += u"\nEmphasis = ";
  Append(text, info.emphasis < 4 ? kEmphasisNames[info.emphasis] : u"Unknown");
  text += u"\n";
  const ReplayGainRecord& rg = state.replayGain;
  if ((rg.flags & RG_FLAG_TRACK_GAIN) != 0) AppendFormat(text, "track_gain=%+lf(dB)\n", rg.trackGain);
  if ((rg.flags & RG_FLAG_TRACK_PEAK) != 0) AppendFormat(text, "track_peak=%+lf\n", rg.trackPeak);
  if ((rg.flags & RG_FLAG_ALBUM_GAIN) != 0) AppendFormat(text, "album_gain=%+lf(dB)\n", rg.albumGain);
  if ((rg.flags & RG_FLAG_ALBUM_PEAK) != 0) AppendFormat(text, "album_peak=%+lf\n", rg.albumPeak);
  if (text.size() > kDescriptionChars - 1) text.resize(kDescriptionChars - 1);
  return text;
}

intptr_t FileInfoDialogProc(HWND dialog, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  switch (message) {
    case WM_INITDIALOG: {
      auto* object = reinterpret_cast<Class_KXMP3*>(lParam);
      KxSetPropW(dialog, kDialogProperty, object);
      const DecoderState& state = object->State();
      KxSetDlgItemTextW(dialog, kControlName, FieldText(state.info.generic.name, ZS_NAME_CHARS).c_str());
      KxSetDlgItemTextW(dialog, kControlDescription, BuildFileInfoText(state).c_str());
      // The ID3v1 genre table in its order (the extensions past it are not listed).
      HWND genre = KxGetDlgItem(dialog, kControlGenre);
      for (std::size_t i = 0; i < kDialogGenreCount; ++i) {
        KxSendMessageW(genre, CB_ADDSTRING, 0, reinterpret_cast<intptr_t>(GenreNames[i]));
      }
      if (const void* comment = object->GetCommentSource(); comment != nullptr) {
        for (int field = 0; field < 7; ++field) {
          KxSetDlgItemTextW(dialog, kTagControls[field], CommentFieldText(comment, field).c_str());
        }
      }
      KxSetFocus(KxGetDlgItem(dialog, kControlOk));
      ZCoreDialogRoutine(dialog, message, wParam, lParam);
      // The focus is set here, so the default focus is not wanted.
      return 0;
    }
    case WM_COMMAND: {
      const auto id = static_cast<int>(wParam & 0xFFFFu);
      if (id == kControlOk || id == kControlCancel) {
        KxDestroyWindow(dialog);
        return 1;
      }
      return 0;
    }
    case WM_DESTROY: {
      auto* object = static_cast<Class_KXMP3*>(KxGetPropW(dialog, kDialogProperty));
      KxRemovePropW(dialog, kDialogProperty);
      ZCoreUnregisterModelessDialog(dialog);
      if (object != nullptr) {
        object->State().dialog = nullptr;
        object->Release();
      }
      return 0;
    }
    default:
      return 0;
  }
}

}  // namespace kxmp3

KxResult Class_KXMP3::FileInfoDialog(HWND parent) {
  if (!Opened()) return AF_E_NOT_READY;
  if (state_.dialog != nullptr) {
    KxSetFocus(state_.dialog);
    return AF_S_OK;
  }
  // The open dialog holds a reference; its destruction gives it back.
  AddRef();
  HWND dialog = KxCreateDialogParamW(ZCoreResourceModule(), kxmp3::kFileInfoTemplate, parent,
                                     &kxmp3::FileInfoDialogProc, reinterpret_cast<intptr_t>(this));
  if (dialog == nullptr) {
    Release();
    return AF_E_DIALOG_FAILED;
  }
  state_.dialog = dialog;
  ZCoreRegisterModelessDialog(dialog);
  return AF_S_OK;
}
