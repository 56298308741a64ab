#include "base/writing.h"

#include <cerrno>
#include <cstring>

namespace tool {

Outcome WriteFailure(const std::string &name, int error) {
    return {ExitCode::kOutputFailed, name + ": " + std::strerror(error != 0 ? error : EIO)};
}

Outcome WriteText(FILE *file, const std::string &text, const std::string &name) {
    errno = 0;
    const bool written = std::fputs(text.c_str(), file) >= 0 && std::fflush(file) == 0;
    return written ? Outcome{} : WriteFailure(name, errno);
}

} // namespace tool
