#include "base/writing.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>

namespace tool {

Outcome WriteFailure(const std::string &name, int error) {
    return {ExitCode::kOutputFailed, name + ": " + std::strerror(error != 0 ? error : EIO)};
}

Outcome WriteText(FILE *file, const std::string &text, const std::string &name) {
    errno = 0;
    const bool written = std::fputs(text.c_str(), file) >= 0 && std::fflush(file) == 0;
    return written ? Outcome{} : WriteFailure(name, errno);
}

Outcome QuietIfAbandoned(const Outcome &outcome, FILE *standardOutput) {
    pollfd output = {fileno(standardOutput), POLLOUT, 0};
    const bool isItsFailure =
        outcome.code == ExitCode::kOutputFailed && outcome.text.rfind(kStandardOutput, 0) == 0;
    const bool isAbandoned = isItsFailure && poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
    return isAbandoned ? OutcomeOfSignal(SIGPIPE) : outcome;
}

} // namespace tool
