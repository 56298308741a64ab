#include "session/library_output.h"

#include "base/console.h"
#include "base/secrets.h"
#include "base/text.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <atomic>
#include <string>

namespace tool {
namespace {

std::atomic<bool> gblShows{false};

// Line by line: what is to be hidden stands in one of them.
void ShowLines(std::string_view text, const char *mark) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (line.ends_with('\r')) line.remove_suffix(1);
        std::string shown = WithoutSecrets(line);
        std::replace(shown.begin(), shown.end(), '\t', ' ');
        if (!line.empty()) PrintLine(mark + Printable(shown));
    }
}

// On any thread of the library.
void Show(void * /*context*/, int32_t level, intptr_t /*client*/, const char *text) {
    constexpr std::string_view kRequest = "RTSP SENDING: "; // before one
    const std::string_view message = text;
    if (!gblShows) return;
    if (message.starts_with(kRequest)) return ShowLines(message.substr(kRequest.size()), "> ");
    ShowLines(message, level == RTSPTAP_PRINT_ERROR  ? "!!!ERROR!!! : "
                       : level == RTSPTAP_PRINT_INFO ? "!!!INFO!!! : "
                                                     : "");
}

} // namespace

LibraryOutput::LibraryOutput(bool show) {
    gblShows = show;
    RTSPTapSetPrinter(0, Show, nullptr);
}

LibraryOutput::~LibraryOutput() { gblShows = false; }

void ShowReply(std::string_view text) {
    if (gblShows) ShowLines(text, "< ");
}

} // namespace tool
