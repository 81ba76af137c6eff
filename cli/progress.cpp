// The progress bar on standard error (see progress.h).
#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace kxhost {

namespace {

int TerminalWidth() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 20) return size.ws_col;
  return 80;
}

}  // namespace

bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool quiet, uint64_t total, std::string unit)
    : enabled_(!quiet && StderrIsTerminal()), total_(total), unit_(std::move(unit)) {}

Progress::~Progress() { Clear(); }

void Progress::SetTotal(uint64_t total) {
  std::lock_guard<std::mutex> lock(mutex_);
  total_ = total;
}

void Progress::Update(uint64_t done, const std::string& label) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  done_ = done;
  if (!label.empty()) label_ = label;
  DrawLocked(false);
}

void Progress::Advance(uint64_t units, const std::string& label) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  done_ += units;
  if (!label.empty()) label_ = label;
  DrawLocked(done_ == total_);
}

void Progress::Clear() {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  ClearLocked();
}

void Progress::Message(const std::string& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (enabled_) ClearLocked();
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
}

void Progress::ClearLocked() {
  if (!drawn_) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
  drawn_ = false;
}

void Progress::DrawLocked(bool force) {
  const auto now = std::chrono::steady_clock::now();
  if (!force && drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
  lastDraw_ = now;
  const int width = TerminalWidth();
  // Built by appending only (g++ 12 at -O3 misjudges "literal" + string).
  const int barWidth = width >= 60 ? 30 : 10;
  const uint64_t done = done_ < total_ ? done_ : total_;
  const uint64_t filled = total_ != 0 ? done * static_cast<uint64_t>(barWidth) / total_ : 0;
  std::string line(1, '[');
  for (int i = 0; i < barWidth; ++i) line.push_back(static_cast<uint64_t>(i) < filled ? '#' : '-');
  line.append("] ");
  if (total_ != 0) {
    line.append(std::to_string(done * 100 / total_)).append("%");
    if (!unit_.empty()) {
      line.append(" ").append(std::to_string(done_)).append("/").append(std::to_string(total_));
      line.append(" ").append(unit_);
    }
  } else {
    line.append(std::to_string(done_));
    if (!unit_.empty()) line.append(" ").append(unit_);
  }
  if (!label_.empty()) line.append("  ").append(label_);
  // Never wrap: a wrapped line could not be wiped with one carriage return.
  if (line.size() > static_cast<size_t>(width - 1)) line.resize(static_cast<size_t>(width - 1));
  std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace kxhost
