#include "session/library_output.h"

#include "base/console.h"
#include "base/secrets.h"
#include "base/text.h"

#include <algorithm>
#include <atomic>
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

constexpr std::string_view kRequest = "RTSP SENDING:"; // the library's line before one
constexpr std::string_view kReply = "< ";

std::atomic<bool> gblShows{false};

// Whole lines, in however many pieces the library prints them: what is to be hidden stands in one of them.
class Dialogue {
public:
    void Show(std::string_view line) {
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
        const bool isRequest = line.find(kRequest) != line.npos;
        const bool isOther = line.starts_with("!!!") || line.starts_with(kReply);
        if (isRequest || isOther || line.empty()) sending_ = isRequest;
        const bool isBlank = line.empty() && !isRequest;
        if (isRequest || isBlank) return;
        std::string shown = WithoutSecrets(line);
        std::replace(shown.begin(), shown.end(), '\t', ' ');
        PrintLine((sending_ ? "> " : "") + Printable(shown));
    }

private:
    bool sending_ = false;
};

void ShowLines(int descriptor) {
    FILE *lines = fdopen(descriptor, "r");
    Dialogue dialogue;
    char *line = nullptr;
    std::size_t capacity = 0;
    for (ssize_t length = 0; lines != nullptr && (length = getline(&line, &capacity, lines)) > 0;)
        dialogue.Show({line, static_cast<std::size_t>(length)});
    free(line);
    if (lines != nullptr) std::fclose(lines);
}

} // namespace

LibraryOutput::LibraryOutput(bool show) {
    std::fflush(stdout);
    data_ = fdopen(Checked(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)), "w");
    int sink = -1;
    gblShows = show;
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

void ShowReply(std::string_view text) {
    if (!gblShows) return;
    std::string lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = text.substr(at, end - at);
        if (line.find_first_not_of('\r') != line.npos) lines.append(kReply).append(line).append("\n");
        at = end + 1;
    }
    std::fwrite(lines.data(), 1, lines.size(), stdout); // in one piece, whoever else prints
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
