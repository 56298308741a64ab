#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace tool {
namespace {

using std::chrono::milliseconds;

constexpr auto kRedraw = milliseconds(250);
constexpr int64_t kBarWidth = 20;

std::string Length(milliseconds length) {
    const int64_t seconds = (length.count() + 500) / 1000;
    char text[32];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%d:%02d:%02d", static_cast<int>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%02d:%02d", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    return text;
}

} // namespace

std::string ProgressLine(milliseconds elapsed, milliseconds duration, milliseconds split, uint64_t bytes) {
    const bool toFile = duration.count() == 0; // the bar is that of the current file
    const milliseconds whole = toFile ? split : duration;
    const milliseconds done = toFile ? elapsed % split : std::min(elapsed, duration);
    const auto filled = static_cast<std::size_t>(kBarWidth * done.count() / whole.count());
    std::string line = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    line += Length(done) + " of " + Length(whole) + ", " + Length(whole - done) + " left";
    if (split.count() > 0) line += ", file " + std::to_string(elapsed / split + 1);
    char size[32];
    std::snprintf(size, sizeof size, ", %.1f MB", static_cast<double>(bytes) / 1e6);
    return line + size;
}

Progress::Progress(milliseconds duration, milliseconds split)
    : duration_(duration), split_(split),
      shows_((duration.count() > 0 || split.count() > 0) && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (shown_) std::fputc('\n', stderr);
}

void Progress::Show(Clock::duration elapsed, uint64_t bytes) {
    const Clock::time_point now = Clock::now();
    if (!shows_ || now - lastShown_ < kRedraw) return;
    lastShown_ = now;
    shown_ = true;
    // Back to the margin, the line, and away with what an earlier one left behind it.
    const auto passed = std::chrono::duration_cast<milliseconds>(elapsed);
    std::fprintf(stderr, "\r%s\033[K", ProgressLine(passed, duration_, split_, bytes).c_str());
}

} // namespace tool
