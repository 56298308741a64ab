#include "base/writing.h"

#include <cerrno>
#include <csignal>
#include <cstring>

namespace tool {

// A reader that has enough is no failure to talk about.
Outcome WriteFailure(const std::string &name, int error) {
    if (error == EPIPE) return OutcomeOfSignal(SIGPIPE);
    return {ExitCode::kOutputFailed, name + ": " + std::strerror(error != 0 ? error : EIO)};
}

Outcome WriteText(FILE *file, const std::string &text, const std::string &name) {
    errno = 0;
    const bool written = std::fputs(text.c_str(), file) >= 0 && std::fflush(file) == 0;
    return written ? Outcome{} : WriteFailure(name, errno);
}

} // namespace tool
