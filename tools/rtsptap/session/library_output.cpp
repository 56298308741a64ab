#include "session/library_output.h"

#include "base/console.h"
#include "base/secrets.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

int Checked(int descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "standard output");
    return descriptor;
}

// Whole lines, in however many pieces the library prints them: what is to be hidden stands in one of them.
void ShowLine(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    PrintLine(WithoutSecrets(line));
}

void ShowLines(int descriptor) {
    FILE *lines = fdopen(descriptor, "r");
    char *line = nullptr;
    std::size_t capacity = 0;
    for (ssize_t length = 0; lines != nullptr && (length = getline(&line, &capacity, lines)) > 0;)
        ShowLine({line, static_cast<std::size_t>(length)});
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

// Threads of the library may be left that print: descriptor 1 stays away from what was standard output.
LibraryOutput::~LibraryOutput() {
    std::fflush(stdout);
    if (const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC); nowhere >= 0) {
        dup2(nowhere, STDOUT_FILENO); // the pipe's last writing end goes with it
        close(nowhere);
        if (drain_.joinable()) drain_.join();
    }
    if (drain_.joinable()) drain_.detach();
    std::fclose(data_);
}

} // namespace tool
