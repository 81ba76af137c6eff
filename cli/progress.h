// A one-line progress bar on standard error for long work (decoding, batches,
// directory scans). It draws only when standard error is a terminal and --quiet was
// not given, at most ten times a second, and wipes its line when done, so that
// logs, pipes and error lines never see it. Safe to update from several threads.
#pragma once

#include <chrono>
#include <cstdint>
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

  // Whether anything is drawn at all.
  bool Enabled() const { return enabled_; }
  // Sets the total once it is known (0: unknown).
  void SetTotal(uint64_t total);
  // Moves to `done` units, with a short text shown after the bar.
  void Update(uint64_t done, const std::string& label = std::string());
  void Advance(uint64_t units, const std::string& label = std::string());
  // Wipes the bar's line (before an error line is printed, and at the end); the
  // next update draws it again.
  void Clear();
  // Prints one line on standard error without tearing the bar.
  void Message(const std::string& line);

 private:
  void DrawLocked(bool force);
  void ClearLocked();

  bool enabled_ = false;
  uint64_t total_ = 0;
  uint64_t done_ = 0;
  std::string unit_;
  std::string label_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point lastDraw_{};
  std::mutex mutex_;
};

// Whether standard error is a terminal (progress bars are drawn).
bool StderrIsTerminal();

}  // namespace kxhost
