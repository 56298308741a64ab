#include "library_output.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

int Checked(int descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "standard output");
    return descriptor;
}

// The library shows whole requests; credentials stay out of what people paste into reports.
std::string WithoutSecrets(const std::string &line) {
    constexpr std::string_view kSecret = "Authorization: ";
    const std::size_t at = line.find(kSecret);
    return at == std::string::npos ? line : line.substr(0, at + kSecret.size()) + "(hidden)\n";
}

void ShowLines(int descriptor) {
    FILE *lines = fdopen(descriptor, "r");
    char *line = nullptr;
    std::size_t capacity = 0;
    while (lines != nullptr && getline(&line, &capacity, lines) > 0)
        std::fputs(WithoutSecrets(line).c_str(), stderr);
    free(line);
    if (lines != nullptr) std::fclose(lines);
}

} // namespace

LibraryOutput::LibraryOutput(bool show) {
    std::fflush(stdout);
    data_ = fdopen(Checked(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), "w");
    int sink = -1;
    if (show) {
        int ends[2] = {};
        Checked(pipe2(ends, O_CLOEXEC));
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        drain_ = std::thread(ShowLines, ends[0]);
        sink = ends[1];
    } else {
        sink = Checked(open("/dev/null", O_WRONLY | O_CLOEXEC));
    }
    Checked(dup2(sink, STDOUT_FILENO));
    close(sink);
}

LibraryOutput::~LibraryOutput() {
    std::fflush(stdout);
    dup2(fileno(data_), STDOUT_FILENO); // the pipe's last writing end goes with it
    if (drain_.joinable()) drain_.join();
    std::fclose(data_);
}

} // namespace tool
