#include "commands/page_file.h"

#include "base/writing.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tool {

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
