#include "base/writing.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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

PageFile::~PageFile() {
    if (owned_ && file_ != nullptr) std::fclose(file_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

Outcome PageFile::Open(const std::string &path, FILE *standardOutput) {
    path_ = path;
    owned_ = path != "-";
    struct stat present = {};
    const bool exists = owned_ && lstat(path.c_str(), &present) == 0;
    if (owned_ && (!exists || S_ISREG(present.st_mode))) temporary_ = path + ".part";
    file_ = owned_ ? std::fopen((temporary_.empty() ? path : temporary_).c_str(), "we") : standardOutput;
    if (file_ != nullptr) return {};
    temporary_.clear();
    return WriteFailure(Name(), errno);
}

Outcome PageFile::Write(const std::string &page) {
    if (Outcome failed = WriteText(file_, page, Name()); !failed.IsOk() || !owned_) return failed;
    if (std::fclose(std::exchange(file_, nullptr)) != 0) return WriteFailure(Name(), errno);
    if (temporary_.empty()) return {};
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) return WriteFailure(Name(), errno);
    temporary_.clear();
    return {};
}

std::string PageFile::Name() const { return owned_ ? path_ : kStandardOutput; }

} // namespace tool
