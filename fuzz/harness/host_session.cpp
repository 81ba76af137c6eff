// The module target: one input driven through the plug-in the way a host drives it.
// The host reads the plug-in record and the format record, probes a stream, creates
// a decoder through the format record, opens it on a stream it hands over, asks for
// the records, opens and closes the file-information dialog, pulls PCM in byte
// counts of its own choosing until the end, seeks, rewinds and releases everything.
//
// Each input is opened under three names, because container detection and the frame
// search depend on the name's extension. One of the three (picked by the input's
// hash) gets the long session (decoding to the end, seeks, rewind); the other two
// open, query and decode a few requests, which keeps the target fast enough to fuzz.
#include <algorithm>
#include <cstring>
#include <vector>

#include "checks.h"
#include "harness.h"
#include "host/kxcore.h"
#include "host/zss_plugin.h"
#include "platform/kx_platform.h"
#include "plugin/kxmp3.h"
#include "plugin/plugin_info.h"

namespace kxfuzz {

namespace {

constexpr const char16_t* kNames[] = {u"fuzz.mp3", u"fuzz.wav", u"fuzz.bin"};

// Request sizes a host might use: whole frames of each layout, odd counts, single
// bytes and very large buffers.
constexpr int32_t kRequestSizes[] = {4608, 1, 1152, 18435, 4095, 18432, 100000, 7, 2304, 9216, 65536, 333};
constexpr size_t kRequestSizeCount = sizeof(kRequestSizes) / sizeof(kRequestSizes[0]);

// Bytes one frame can yield at most: 1152 samples x 2 channels x 8 bytes.
constexpr uint64_t kMaxFrameBytes = 1152u * 2u * 8u;
// Bytes of the smallest Layer III frame (MPEG-2, 24 kHz, 8 kbit/s).
constexpr uint64_t kMinFrameLength = 24;

struct Session {
  Class_KXAudioFile* audio = nullptr;
  Class_KXMP3* decoder = nullptr;
  uint32_t variant = 0;
  size_t inputSize = 0;
  bool infoOnly = false;
  uint32_t blockAlign = 0;
  uint64_t totalBytes = 0;
  uint64_t sinceSeek = 0;  // bytes delivered since the open, the last seek or rewind
  bool placeKnown = true;  // false after a seek that failed half-way
  SessionSummary summary;
  std::vector<uint8_t> buffer;
};

// One DecodeToPCMData call; returns the result and adds the bytes to *delivered.
KxResult Pull(Session& s, int32_t want, uint64_t* delivered) {
  s.buffer.resize(static_cast<size_t>(want));
  int32_t written = -1;
  const KxResult rc = s.audio->DecodeToPCMData(s.buffer.data(), want, &written);
  RequireNamedCode(rc, "DecodeToPCMData");
  if (written < 0 || written > want) Violation("DecodeToPCMData wrote %d bytes of %d asked", written, want);
  if (s.infoOnly && (rc != AF_E_NOT_READY || written != 0)) {
    Violation("DecodeToPCMData on an information-only open gave 0x%X", rc);
  }
  // Standing on a sample boundary and asked for whole samples, the decoder delivers
  // whole samples while the data lasts.
  if (s.blockAlign != 0 && s.placeKnown && s.sinceSeek % s.blockAlign == 0 &&
      want % static_cast<int32_t>(s.blockAlign) == 0 &&
      written > 0 && written % static_cast<int32_t>(s.blockAlign) != 0 && rc != AF_S_END_OF_DATA) {
    Violation("DecodeToPCMData delivered %d bytes, not whole samples of %u", written, s.blockAlign);
  }
  if (written > 0) {
    *delivered += static_cast<uint64_t>(written);
    s.sinceSeek += static_cast<uint64_t>(written);
    s.summary.bytesDelivered += static_cast<uint64_t>(written);
  }
  if (rc != AF_S_OK && rc != AF_S_FRAME_ERROR && rc != AF_S_END_OF_DATA) ++s.summary.failedRequests;
  return rc;
}

// Pulls until the end of the data or `maxCalls` calls (0: no limit), as a host
// that tries again after a failed request; returns the last result. The output can
// never pass what the input's frames can yield, and failures cannot go on without
// end: each failed request consumes at least one frame of the stream (or the
// stream's end is reached). A successful request that delivers nothing (its frame
// could not be decoded into the frame buffer) counts as a failure here.
KxResult PullToEnd(Session& s, size_t firstRequest, uint32_t maxCalls) {
  const uint64_t cap = (s.inputSize / kMinFrameLength + 4) * kMaxFrameBytes;
  const uint64_t maxFailures = s.inputSize / kMinFrameLength + 16;
  uint64_t delivered = 0;
  uint64_t failures = 0;
  size_t k = firstRequest;
  KxResult rc = AF_S_OK;
  for (uint32_t call = 0; maxCalls == 0 || call < maxCalls; ++call) {
    const int32_t want = kRequestSizes[k++ % kRequestSizeCount];
    const uint64_t before = delivered;
    rc = Pull(s, want, &delivered);
    if (rc == AF_S_END_OF_DATA || s.infoOnly) return rc;
    const bool failed = (rc != AF_S_OK && rc != AF_S_FRAME_ERROR) || delivered == before;
    if (failed && ++failures > maxFailures) {
      Violation("%llu failed requests on %zu input bytes: decoding does not end",
                static_cast<unsigned long long>(failures), s.inputSize);
      return rc;
    }
    if (delivered > cap) {
      Violation("%llu PCM bytes from %zu input bytes: decoding does not end",
                static_cast<unsigned long long>(delivered), s.inputSize);
      return rc;
    }
  }
  return rc;
}

void QueryRecords(Session& s) {
  uint32_t size = 0;
  KxResult rc = s.audio->GetInfo(FOURCC_ZMP3, nullptr, &size);
  RequireNamedCode(rc, "GetInfo size");
  if (rc != AF_S_OK) Violation("GetInfo(ZMP3) size query failed with 0x%X after a successful open", rc);
  kxmp3::MP3Info info{};
  size = sizeof(info);
  rc = s.audio->GetInfo(FOURCC_ZMP3, &info, &size);
  if (rc != AF_S_OK || size != sizeof(info)) Violation("GetInfo(ZMP3) gave 0x%X", rc);
  const AudioFileInfo& g = info.generic;
  CheckTerminated(g.name, 1024, "MP3Info name");
  CheckTerminated(g.description, 128, "MP3Info description");
  CheckTerminated(g.channelModeName, 64, "MP3Info channel mode");
  if (g.channels != 1 && g.channels != 2) Violation("MP3Info: %u channels", g.channels);
  if (g.bitsPerSample != 16 && g.bitsPerSample != 64) Violation("MP3Info: %u bits", g.bitsPerSample);
  if (info.containerType < 1 || info.containerType > 5) Violation("MP3Info: container %u", info.containerType);
  s.blockAlign = g.bitsPerSample / 8 * g.channels;
  s.totalBytes = g.totalPcmBytes;

  AudioFileInfo generic{};
  size = sizeof(generic) - 1;
  rc = s.audio->GetInfo(FOURCC_ZAFC, &generic, &size);
  if (rc != AF_E_BUFFER_TOO_SMALL || size != sizeof(generic)) Violation("GetInfo(ZAFC) short record gave 0x%X", rc);
  kxmp3::ReplayGainRecord gain{};
  size = sizeof(gain);
  rc = s.audio->GetInfo(FOURCC_RPGI, &gain, &size);
  if (rc != AF_S_OK) Violation("GetInfo(RPGI) gave 0x%X", rc);
  CheckReplayGainRecord(gain, "GetInfo(RPGI)");
  rc = s.audio->GetInfo(MakeFourCC('N', 'O', 'N', 'E'), &gain, &size);
  if (rc != AF_E_UNKNOWN_CODE) Violation("GetInfo(unknown code) gave 0x%X", rc);

  size = 0;
  rc = s.audio->GetComment(FOURCC_ZAFC, nullptr, &size);
  RequireNamedCode(rc, "GetComment size");
  if (rc == AF_S_OK && size != 0) {
    std::vector<uint8_t> comment(size);
    uint32_t got = size;
    rc = s.audio->GetComment(FOURCC_ZAFC, comment.data(), &got);
    RequireNamedCode(rc, "GetComment");
    if (rc == AF_S_OK) CheckCommentRecord(comment.data(), comment.size(), "GetComment");
  }

  PCMWAVEFORMAT format{};
  rc = s.audio->GetPCMWaveFormat(&format);
  if (rc != AF_S_OK) Violation("GetPCMWaveFormat gave 0x%X", rc);
  if (format.nBlockAlign != s.blockAlign) Violation("PCM format block %u, record %u", format.nBlockAlign, s.blockAlign);

  QWUNION time{};
  RequireNamedCode(s.audio->GetTotalTime(&time), "GetTotalTime");
  RequireNamedCode(s.audio->GetReferenceTime(&time), "GetReferenceTime");
  QWUNION samples{};
  time.i = 1000000;
  RequireNamedCode(s.audio->ReferenceTimeToSamples(time, &samples), "ReferenceTimeToSamples");
  RequireNamedCode(s.audio->SamplesToReferenceTime(samples, &time), "SamplesToReferenceTime");
}

// Opens the dialog and closes it with OK, as a user would.
void ShowDialog(Session& s) {
  const uint32_t before = s.decoder->GetRefCount();
  const KxResult rc = s.audio->FileInfoDialog(nullptr);
  RequireNamedCode(rc, "FileInfoDialog");
  HWND dialog = s.decoder->State().dialog;
  if (rc != AF_S_OK || dialog == nullptr) return;
  KxSendMessageW(dialog, WM_COMMAND, KxMakeWParam(IDOK, 0), 0);
  if (s.decoder->State().dialog != nullptr || s.decoder->GetRefCount() != before) {
    Violation("the dialog did not close or kept a reference");
  }
}

void Seek(Session& s, int64_t position, uint32_t origin) {
  QWUNION target{};
  target.i = position;
  const KxResult rc = s.audio->SetCurrentPosition(target, origin);
  RequireNamedCode(rc, "SetCurrentPosition");
  // A refused target changes nothing; a seek that failed on the way leaves the
  // place in the output unknown.
  if (rc == AF_S_OK) {
    // The new place keeps the old one's offset within a sample when the seek was
    // relative (the target is the current place plus whole samples), so the phase
    // comes from the position the decoder reports.
    QWUNION here{};
    RequireNamedCode(s.audio->GetCurrentPosition(&here, AF_ORIGIN_START), "GetCurrentPosition");
    s.sinceSeek = here.u;
    s.placeKnown = true;
  } else if (rc != AF_E_OUT_OF_RANGE) {
    s.placeKnown = false;
  }
  if (s.infoOnly && rc != AF_E_NOT_READY) Violation("SetCurrentPosition on an information-only open gave 0x%X", rc);
  if (origin == AF_ORIGIN_START && s.blockAlign != 0 && position > 0 &&
      static_cast<uint64_t>(position) >= s.totalBytes + s.blockAlign && rc != AF_E_OUT_OF_RANGE && !s.infoOnly) {
    Violation("a seek past the end gave 0x%X", rc);
  }
  QWUNION now{};
  for (uint32_t origin2 : {AF_ORIGIN_START, AF_ORIGIN_CURRENT, AF_ORIGIN_END}) {
    RequireNamedCode(s.audio->GetCurrentPosition(&now, origin2), "GetCurrentPosition");
  }
  RequireNamedCode(s.audio->GetReferenceTime(&now), "GetReferenceTime");
  RequireNamedCode(s.audio->GetTotalTime(&now), "GetTotalTime");
  PullToEnd(s, s.variant >> 8, 3);
}

void LongSession(Session& s) {
  // After the end, the next call answers end of data with nothing. (After a failure
  // a host may call again, and decoding may go on behind the damage.)
  if (PullToEnd(s, s.variant >> 4, 0) == AF_S_END_OF_DATA) {
    uint64_t delivered = 0;
    const KxResult rc = Pull(s, 4608, &delivered);
    if (rc != AF_S_END_OF_DATA || delivered != 0) Violation("decoding went on after the end (0x%X)", rc);
  }

  const int64_t total = static_cast<int64_t>(s.totalBytes);
  const int64_t block = s.blockAlign != 0 ? s.blockAlign : 1;
  Seek(s, total / 2, AF_ORIGIN_START);
  Seek(s, 0, AF_ORIGIN_START);
  Seek(s, block * 100, AF_ORIGIN_CURRENT);
  Seek(s, 0, AF_ORIGIN_CURRENT);
  Seek(s, total + block, AF_ORIGIN_START);
  Seek(s, total - block, AF_ORIGIN_START);
  Seek(s, block * static_cast<int64_t>(s.variant % 4096) * 1152, AF_ORIGIN_START);
  Seek(s, -block * 5000, AF_ORIGIN_CURRENT);
  Seek(s, -block * 1000, AF_ORIGIN_END);
  Seek(s, total / 3, AF_ORIGIN_START);

  const KxResult rewound = s.audio->Rewind();
  RequireNamedCode(rewound, "Rewind");
  s.sinceSeek = 0;
  s.placeKnown = rewound == AF_S_OK;
  if (s.infoOnly && rewound != AF_E_NOT_READY) Violation("Rewind on an information-only open gave 0x%X", rewound);
  PullToEnd(s, s.variant >> 12, 6);
}

// Decodes to the end, then one seek into the middle, a rewind and a few requests.
void DecodeSession(Session& s) {
  if (PullToEnd(s, s.variant >> 4, 0) == AF_S_END_OF_DATA) {
    uint64_t delivered = 0;
    const KxResult rc = Pull(s, 4608, &delivered);
    if (rc != AF_S_END_OF_DATA || delivered != 0) Violation("decoding went on after the end (0x%X)", rc);
  }
  Seek(s, static_cast<int64_t>(s.totalBytes / 2), AF_ORIGIN_START);
  const KxResult rewound = s.audio->Rewind();
  RequireNamedCode(rewound, "Rewind");
  s.sinceSeek = 0;
  s.placeKnown = rewound == AF_S_OK;
  PullToEnd(s, s.variant >> 12, 3);
}

bool FormatRecord(FormatInfo* format) {
  PluginInfo plugin{};
  if (ZSSGetPluginInfo(&plugin) != AF_S_OK || plugin.getFormatInfo == nullptr) {
    Violation("no plug-in record");
    return false;
  }
  if (plugin.getFormatInfo(format) != AF_S_OK || format->formatCount != 1 || format->probe == nullptr ||
      format->create == nullptr) {
    Violation("no format record");
    return false;
  }
  return true;
}

SessionSummary RunSession(const uint8_t* data, size_t size, const char16_t* name, uint32_t variant,
                          SessionDepth depth, const FormatInfo& format) {
  // The probe leaves the stream where it found it and keeps no reference.
  {
    HeldStream probe(data, size, name);
    const KxResult rc = format.probe(probe.get(), FOURCC_ZMP3);
    if (rc != AF_S_OK && rc != AF_E_UNSUPPORTED) Violation("probe gave 0x%X", rc);
    if (PositionOf(probe.get()) != 0) Violation("the probe moved the stream");
    probe.Finish("probe");
  }

  Class_ZCOM* object = nullptr;
  if (format.create(FOURCC_ZMP3, &object) != AF_S_OK || object == nullptr) {
    Violation("the format record's create callback failed");
    return {};
  }
  Session s;
  s.variant = variant;
  s.inputSize = size;
  void* audioInterface = nullptr;
  if (object->QueryInterface(FOURCC_ZAFC, &audioInterface) != AF_S_OK || audioInterface == nullptr) {
    Violation("the decoder has no audio-file interface");
    object->Release();
    return {};
  }
  s.audio = static_cast<Class_KXAudioFile*>(audioInterface);
  s.decoder = dynamic_cast<Class_KXMP3*>(object);

  HeldStream stream(data, size, name);
  uint32_t flags = OPEN_FLAG_STREAM;
  if ((variant & 0x7) == 0x7) flags |= OPEN_FLAG_INFO_ONLY;
  if ((variant & 0x18) == 0x18) flags |= OPEN_FLAG_FULL_SCAN;
  if ((variant & 0x20) != 0) flags |= OPEN_FLAG_NO_DEEMPHASIS;
  s.infoOnly = (flags & OPEN_FLAG_INFO_ONLY) != 0;
  OpenParams params{};
  params.tag = (variant & 0x40) != 0 ? FOURCC_ZMP3 : FOURCC_ZAFC;
  params.size = sizeof(OpenParams);
  params.flags = flags;
  params.source = stream.HandOver();
  params.requestedBits = (variant & 0x80) != 0 ? 32 : 16;
  const KxResult opened = s.audio->Create(&params);
  RequireNamedCode(opened, "Create");
  s.summary.opened = opened;

  if (opened == AF_S_OK) {
    QueryRecords(s);
    if ((variant & 0x300) == 0x300) ShowDialog(s);
    switch (depth) {
      case SessionDepth::kOpen:
        PullToEnd(s, variant >> 4, 3);
        break;
      case SessionDepth::kDecode:
        DecodeSession(s);
        break;
      case SessionDepth::kFull:
        LongSession(s);
        break;
    }
    // A second open is refused.
    const KxResult again = s.audio->Create(&params);
    if (again != AF_E_ALREADY_CREATED) Violation("a second Create gave 0x%X", again);
  } else {
    // A failed open leaves an object that answers "not ready".
    int32_t written = -1;
    uint8_t byte = 0;
    if (s.audio->DecodeToPCMData(&byte, 1, &written) != AF_E_NOT_READY || written != 0) {
      Violation("DecodeToPCMData after a failed open did not answer not-ready");
    }
  }
  s.audio->Release();
  if (object->Release() != 0) Violation("the decoder kept references of its own");
  stream.Finish(opened == AF_S_OK ? "open, decode and release" : "failed open");
  return s.summary;
}

}  // namespace

void Initialise() { kxmp3::ProcessAttach(nullptr); }

void RunModule(const uint8_t* data, size_t size) {
  FormatInfo format{};
  if (!FormatRecord(&format)) return;
  const uint32_t variant = InputHash(data, size);
  // Double-byte code page or not: the tag text paths differ.
  KxSetAnsiCodePage((variant & 0x400) != 0 ? 932 : 1252);
  const CoreMemoryWatch memory;
  const size_t longOne = (variant >> 16) % 3;
  for (size_t n = 0; n < 3; ++n) {
    RunSession(data, size, kNames[n], variant >> n, n == longOne ? SessionDepth::kFull : SessionDepth::kOpen, format);
  }
  memory.Check("module");
}

SessionSummary RunHostSession(const uint8_t* data, size_t size, const char16_t* name, uint32_t variant,
                              SessionDepth depth) {
  FormatInfo format{};
  if (!FormatRecord(&format)) return {};
  const CoreMemoryWatch memory;
  const SessionSummary summary = RunSession(data, size, name, variant, depth, format);
  memory.Check("host session");
  return summary;
}

}  // namespace kxfuzz
