// A one-line progress display on standard error for long work (decoding, batches,
// directory scans). It draws only when standard error is a terminal (or --progress
// asks for it) and --quiet was not given, at most ten times a second, and wipes its
// line when done, so that logs, pipes and error lines never see it. Safe to update
// from several threads.
//
// Counting work (files, scans) shows a bar, a percentage and "n/N unit". Decoding
// shows, for the file updated last, its name, position / duration, the speed in
// multiples of real time (all workers together) and the time left; in a batch the
// bar and the time left cover every file, and the line moves as audio decodes, not
// only when a file ends.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace kxhost {

class Progress {
 public:
  // `total` units of work (0: unknown, only the count is shown); `unit` names them
  // in the count ("files"; empty: a percentage only).
  Progress(bool quiet, uint64_t total, std::string unit);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Draws even when standard error is not a terminal (--progress), unless quiet.
  static void Force(bool force);

  // Whether anything is drawn at all.
  bool Enabled() const { return enabled_; }
  // Sets the total once it is known (0: unknown).
  void SetTotal(uint64_t total);
  // Moves to `done` units, with a short text shown after the bar.
  void Update(uint64_t done, const std::string& label = std::string());
  void Advance(uint64_t units, const std::string& label = std::string());
  // Decoding of the file `name` by worker `slot`: `done` of `total` samples per
  // channel (0: unknown) at `rate` Hz.
  void FileProgress(unsigned slot, const std::string& name, uint64_t done, uint64_t total, uint32_t rate);
  // Worker `slot` finished its file: one unit done.
  void FileDone(unsigned slot);
  // Wipes the line (before an error line is printed, and at the end); the next
  // update draws it again.
  void Clear();
  // Prints one line on standard error without tearing the display.
  void Message(const std::string& line);

 private:
  struct FileState {
    std::string name;
    uint64_t done = 0;
    uint64_t total = 0;
    uint32_t rate = 0;
    uint64_t sequence = 0;  // when it was updated last
  };
  void DrawLocked(bool force);
  void ClearLocked();
  std::string DecodingLineLocked(int width);

  bool enabled_ = false;
  uint64_t total_ = 0;
  uint64_t done_ = 0;
  std::string unit_;
  std::string label_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point lastDraw_{};
  std::map<unsigned, FileState> files_;  // files being decoded, by worker
  double finishedSeconds_ = 0;           // audio of the files done
  uint64_t sequence_ = 0;
  std::mutex mutex_;
};

// Whether standard error is a terminal (progress is drawn), and its width in
// columns (80 when unknown, never under 20). Each system's stderr_terminal.cpp.
bool StderrIsTerminal();
int StderrTerminalWidth();

}  // namespace kxhost
