#include "base/outlet.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>

namespace tool {

void Outlet::Put(const std::string &text) {
    constexpr std::size_t kMost = std::size_t{1} << 20;
    if (waiting_.size() > kMost) Pass();
    if (waiting_.size() > kMost || error_ != 0) return;
    waiting_ += text;
    Pass();
}

// A descriptor that has room has room for so many bytes.
void Outlet::Write(int patienceMs) {
    constexpr std::size_t kPiece = std::min(PIPE_BUF, 512);
    std::size_t written = 0;
    while (written < waiting_.size() && error_ == 0) {
        pollfd room = {descriptor_, POLLOUT, 0};
        const int ready = poll(&room, 1, patienceMs);
        if (ready == 0) break;
        if (ready < 0 && errno == EINTR) continue;
        const ssize_t count =
            write(descriptor_, waiting_.data() + written, std::min(kPiece, waiting_.size() - written));
        if (count > 0) written += static_cast<std::size_t>(count);
        if (count < 0 && errno == EAGAIN && patienceMs == 0) break;
        if (count < 0 && errno != EAGAIN && errno != EINTR) error_ = errno;
    }
    waiting_.erase(0, written);
    if (error_ != 0) waiting_.clear();
}

} // namespace tool
