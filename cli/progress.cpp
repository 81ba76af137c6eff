// The progress display on standard error (see progress.h).
#include "progress.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "time_value.h"

namespace kxhost {

namespace {

std::atomic<bool> g_force{false};

std::string Bar(double fraction, int width) {
  if (fraction < 0) fraction = 0;
  if (fraction > 1) fraction = 1;
  const int filled = static_cast<int>(fraction * width);
  std::string bar(1, '[');
  for (int i = 0; i < width; ++i) bar.push_back(i < filled ? '#' : '-');
  bar.append("]");
  return bar;
}

// "0:12" / "1:02:03": whole seconds for the time left.
std::string Seconds(double seconds) {
  const std::string text = FormatMilliseconds(static_cast<uint64_t>(seconds + 0.5) * 1000);
  return text.substr(0, text.size() - 4);  // without ".000"
}

// "0:12.3": a position with tenths.
std::string Position(uint64_t samples, uint32_t rate) {
  const std::string text = FormatSamplesAsTime(samples, rate);
  return text.substr(0, text.size() - 2);
}

}  // namespace

void Progress::Force(bool force) { g_force = force; }

Progress::Progress(bool quiet, uint64_t total, std::string unit)
    : enabled_(!quiet && (g_force || StderrIsTerminal())),
      total_(total),
      unit_(std::move(unit)),
      started_(std::chrono::steady_clock::now()) {}

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

void Progress::FileProgress(unsigned slot, const std::string& name, uint64_t done, uint64_t total, uint32_t rate) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  FileState& file = files_[slot];
  file.name = name;
  file.done = done;
  file.total = total;
  file.rate = rate;
  file.sequence = ++sequence_;
  DrawLocked(false);
}

void Progress::FileDone(unsigned slot) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = files_.find(slot);
  if (it != files_.end()) {
    if (it->second.rate != 0) finishedSeconds_ += static_cast<double>(it->second.done) / it->second.rate;
    files_.erase(it);
  }
  ++done_;
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

std::string Progress::DecodingLineLocked(int width) {
  const FileState* shown = nullptr;
  double decodedSeconds = finishedSeconds_;
  double filesDone = static_cast<double>(done_);
  for (const auto& [slot, file] : files_) {
    if (shown == nullptr || file.sequence > shown->sequence) shown = &file;
    if (file.rate != 0) decodedSeconds += static_cast<double>(file.done) / file.rate;
    if (file.total != 0) filesDone += static_cast<double>(std::min(file.done, file.total)) / file.total;
  }
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  const double speed = elapsed > 0 ? decodedSeconds / elapsed : 0;
  // One file: its own fraction; a batch: the files done, with parts of those under way.
  double fraction = 0;
  if (total_ > 1) {
    fraction = filesDone / static_cast<double>(total_);
  } else if (shown != nullptr && shown->total != 0) {
    fraction = static_cast<double>(shown->done) / shown->total;
  }
  std::string line = Bar(fraction, width >= 100 ? 20 : 10);
  line.append(" ");
  if (total_ > 1) line.append(std::to_string(done_)).append("/").append(std::to_string(total_)).append(" ");
  if (shown != nullptr) {
    std::string name = shown->name;
    if (name.size() > 24) name = "..." + name.substr(name.size() - 21);
    line.append(name).append("  ").append(Position(shown->done, shown->rate));
    if (shown->total != 0) line.append(" / ").append(Position(shown->total, shown->rate));
  }
  if (speed > 0) {
    // Multiples of real time: audio seconds decoded per second of work.
    char text[32];
    std::snprintf(text, sizeof(text), speed >= 100 ? "  speed %.0fx" : "  speed %.1fx", speed);
    line.append(text);
  }
  if (fraction > 0.001 && elapsed >= 0.2) line.append("  ETA ").append(Seconds(elapsed * (1 - fraction) / fraction));
  return line;
}

void Progress::DrawLocked(bool force) {
  const auto now = std::chrono::steady_clock::now();
  if (!force && drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
  lastDraw_ = now;
  const int width = StderrTerminalWidth();
  std::string line;
  if (!files_.empty() || finishedSeconds_ > 0) {
    line = DecodingLineLocked(width);
  } else {
    // Built by appending only (g++ 12 at -O3 misjudges "literal" + string).
    const int barWidth = width >= 60 ? 30 : 10;
    const uint64_t done = done_ < total_ ? done_ : total_;
    line = Bar(total_ != 0 ? static_cast<double>(done) / static_cast<double>(total_) : 0, barWidth);
    line.append(" ");
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
  }
  // Never wrap: a wrapped line could not be wiped with one carriage return.
  if (line.size() > static_cast<size_t>(width - 1)) line.resize(static_cast<size_t>(width - 1));
  std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace kxhost
