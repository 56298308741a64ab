#include "session/rtp_info.h"

#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <strings.h>

namespace tool {
namespace {

struct Entry {
    std::string url;
    std::optional<uint32_t> timestamp;
};

bool IsNamed(const std::string &parameter, const std::string &name) {
    return strncasecmp(parameter.c_str(), name.c_str(), name.size()) == 0 && parameter[name.size()] == '=';
}

// "url=rtsp://host/stream=0;seq=12;rtptime=345", parts of which an address may hold as well.
Entry ParseEntry(const std::string &text) {
    Entry entry;
    for (const std::string &part : Split(text, ';')) {
        const std::string parameter = Trimmed(part);
        if (IsNamed(parameter, "url")) entry.url = parameter.substr(4);
        if (!IsNamed(parameter, "rtptime")) continue;
        uint32_t timestamp = 0;
        const char *const digits = parameter.data() + 8;
        const auto [end, error] = std::from_chars(digits, parameter.data() + parameter.size(), timestamp);
        if (error == std::errc() && end != digits) entry.timestamp = timestamp;
    }
    return entry;
}

// A comma ends an entry only where another one begins.
std::vector<Entry> ParseEntries(const Reply &reply) {
    std::vector<std::string> texts;
    for (const auto &[name, value] : reply.headers) {
        if (strcasecmp(name.c_str(), "RTP-Info") != 0) continue;
        for (const std::string &part : Split(value, ',')) {
            if (texts.empty() || IsNamed(Trimmed(part), "url"))
                texts.push_back(part);
            else
                texts.back() += "," + part;
        }
    }
    std::vector<Entry> entries;
    for (const std::string &text : texts) entries.push_back(ParseEntry(text));
    return entries;
}

// Relative addresses are the tails of absolute ones, on either side.
bool IsTail(const std::string &whole, const std::string &tail) {
    if (tail.empty() || tail.size() > whole.size()) return false;
    if (whole.compare(whole.size() - tail.size(), tail.size(), tail) != 0) return false;
    return tail.size() == whole.size() || tail[0] == '/' || whole[whole.size() - tail.size() - 1] == '/';
}

} // namespace

std::map<int32_t, uint32_t> FirstTimestamps(const Reply &reply, const Session &session,
                                            const std::vector<Stream> &streams) {
    const std::vector<Entry> entries = ParseEntries(reply);
    std::map<int32_t, uint32_t> byAddress;
    std::map<int32_t, uint32_t> byOrder;
    std::size_t received = 0;
    for (const Stream &stream : streams) {
        if (!stream.isReadable) continue;
        const std::string control = session.Attribute(stream.number, "control");
        for (const Entry &entry : entries)
            if (entry.timestamp && (IsTail(entry.url, control) || IsTail(control, entry.url)))
                byAddress[stream.number] = *entry.timestamp;
        if (received < entries.size() && entries[received].timestamp)
            byOrder[stream.number] = *entries[received].timestamp;
        ++received;
    }
    return byAddress.empty() && received == entries.size() ? byOrder : byAddress;
}

} // namespace tool
