#include "media/packet_file.h"

#include <cerrno>
#include <unistd.h>

namespace tool {

Outcome OpenPacketFile(const OutputFile &file, FILE *&opened) {
    opened =
        file.path.empty() ? fdopen(dup(fileno(file.standardOutput)), "wb") : std::fopen(file.path.c_str(), "wb");
    if (opened == nullptr) return WriteFailure(file.name, errno);
    if (!file.path.empty()) file.written->Add(file.path);
    // A program at the other end of a pipe gets each packet as it comes.
    if (file.path.empty()) std::setvbuf(opened, nullptr, _IONBF, 0);
    return {};
}

} // namespace tool
