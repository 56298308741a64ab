#include "media/sdp_file.h"

#include "base/codec_names.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <sstream>

namespace tool {
namespace {

constexpr std::size_t kLongestBytes = 65536; // more is no description

struct Mapping {
    int payloadType = 0;
    std::string encodingName;
    int32_t clockRate = 0;
    int32_t channels = 0; // 0: not said
};

// What needs no a=rtpmap (RFC 3551, 6), as far as it can be received.
const Mapping kStatic[] = {
    {0, "PCMU", 8000, 1},  {8, "PCMA", 8000, 1},   {10, "L16", 44100, 2},  {11, "L16", 44100, 1},
    {14, "MPA", 90000, 0}, {26, "JPEG", 90000, 0}, {33, "MP2T", 90000, 0},
};

// One m= line with the lines behind it.
struct Section {
    std::string medium;
    uint16_t port = 0;
    std::string protocol;
    std::vector<int> payloadTypes;
    std::vector<Mapping> mappings;
    std::vector<std::string> parameters; // of a=fmtp, payload type first
    std::string group;
};

template <typename Number> bool ParseWhole(std::string_view text, Number &number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// What stands before the separator; the text goes on behind it.
std::string_view Until(std::string_view &text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

bool StartsWith(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

// "video 5004/2 RTP/AVP 96 97"
bool ParseMedia(std::string_view value, Section &section) {
    section.medium = Until(value, ' ');
    std::string_view ports = Until(value, ' ');
    section.protocol = Until(value, ' ');
    while (!value.empty()) {
        int payloadType = 0;
        if (ParseWhole(Until(value, ' '), payloadType)) section.payloadTypes.push_back(payloadType);
    }
    return ParseWhole(Until(ports, '/'), section.port) && !section.protocol.empty();
}

// "96 mpeg4-generic/44100/2"
bool ParseMapping(std::string_view value, Mapping &mapping) {
    if (!ParseWhole(Until(value, ' '), mapping.payloadType)) return false;
    mapping.encodingName = Until(value, '/');
    const bool hasClock = ParseWhole(Until(value, '/'), mapping.clockRate) && mapping.clockRate > 0;
    return hasClock && (value.empty() || ParseWhole(value, mapping.channels)) && mapping.channels >= 0;
}

// "IN IP4 239.1.2.3/127"; a unicast address is the receiver's own and says nothing.
std::string GroupOf(std::string_view value) {
    Until(value, ' ');
    Until(value, ' ');
    const std::string address(Until(value, '/'));
    in_addr parsed = {};
    const bool isGroup = inet_pton(AF_INET, address.c_str(), &parsed) == 1 && IN_MULTICAST(ntohl(parsed.s_addr));
    return isGroup ? address : "";
}

const Mapping *MappingOf(const Section &section, int payloadType) {
    for (const Mapping &mapping : section.mappings)
        if (mapping.payloadType == payloadType) return &mapping;
    for (const Mapping &mapping : kStatic)
        if (mapping.payloadType == payloadType) return &mapping;
    return nullptr;
}

std::string ParametersOf(const Section &section, int payloadType) {
    for (const std::string &parameters : section.parameters)
        if (std::atoi(parameters.c_str()) == payloadType) return parameters;
    return "";
}

StreamFormat FormatOf(const Section &section, const Mapping &mapping, int32_t number) {
    const int32_t codecType = CodecTypeOfEncoding(mapping.encodingName);
    StreamFormat format =
        FormatOfCodec({number, mapping.encodingName, codecType, true, mapping.clockRate}, section.port);
    format.encodingName = mapping.encodingName;
    for (char &letter : format.encodingName)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    format.clockRate = mapping.clockRate;
    format.channels = mapping.channels;
    format.parameters = ParametersOf(section, mapping.payloadType);
    return format;
}

// Why nothing can be received from a section; empty when something can.
std::string WhyNot(const Section &section, const Mapping *mapping, const std::vector<SdpStream> &earlier) {
    if (section.port == 0) return "its port is 0";
    if (!StartsWith(section.protocol, "RTP/AVP")) return section.protocol + " is not supported";
    if (mapping == nullptr) return "its codec is not supported";
    const int32_t codecType = CodecTypeOfEncoding(mapping->encodingName);
    for (const SdpStream &stream : earlier) {
        if (stream.format.stream.codecType == codecType) return "an earlier one has the same codec";
        if (stream.format.port == section.port) return "an earlier one has the same port";
    }
    return "";
}

void TakeSection(const Section &section, int32_t number, SdpFile &sdp) {
    const Mapping *chosen = nullptr;
    for (const int payloadType : section.payloadTypes) {
        const Mapping *mapping = MappingOf(section, payloadType);
        if (chosen == nullptr && mapping != nullptr && CodecTypeOfEncoding(mapping->encodingName) != 0)
            chosen = mapping;
    }
    const std::string why = WhyNot(section, chosen, sdp.streams);
    if (why.empty())
        sdp.streams.push_back({FormatOf(section, *chosen, number), section.group});
    else
        sdp.omissions.push_back("stream " + std::to_string(number) + " (" + section.medium +
                                ") is left out: " + why);
}

Outcome Refuse(const std::string &line) {
    return {ExitCode::kNotUnderstood, "the description has a line that is not understood: " + line.substr(0, 80)};
}

// False when the value is malformed.
bool TakeAttribute(std::string_view value, Section &section) {
    const std::string_view name = Until(value, ':');
    if (name == "fmtp") section.parameters.emplace_back(value);
    if (name != "rtpmap") return true;
    return ParseMapping(value, section.mappings.emplace_back());
}

bool IsRead(std::string_view line, const std::vector<Section> &sections) {
    return line.size() > 1 && line[1] == '=' &&
           (line[0] == 'm' || line[0] == 'c' || (line[0] == 'a' && !sections.empty()));
}

} // namespace

Outcome ParseSdp(std::string_view text, SdpFile &sdp) {
    std::vector<Section> sections;
    std::string group; // of the session
    while (!text.empty()) {
        std::string_view line = Until(text, '\n');
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (!IsRead(line, sections)) continue;
        bool good = true;
        const std::string_view value = line.substr(2);
        if (line[0] == 'c')
            (sections.empty() ? group : sections.back().group) = GroupOf(value);
        else if (line[0] == 'm') {
            sections.emplace_back().group = group;
            good = ParseMedia(value, sections.back());
        } else
            good = TakeAttribute(value, sections.back());
        if (!good) return Refuse(std::string(line));
    }
    if (sections.empty()) return {ExitCode::kNotUnderstood, "no session description: it has no m= line"};
    for (const Section &section : sections)
        TakeSection(section, static_cast<int32_t>(&section - sections.data()) + 1, sdp);
    return {};
}

Outcome ReadSdpFile(const std::string &path, SdpFile &sdp) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(path == "-" ? fdopen(0, "r") : std::fopen(path.c_str(), "r"),
                                                      std::fclose);
    std::string text(kLongestBytes + 1, '\0');
    if (file != nullptr) text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (file == nullptr || std::ferror(file.get()) != 0)
        return {ExitCode::kUsage, path + ": " + std::strerror(errno)};
    if (text.size() > kLongestBytes)
        return {ExitCode::kNotUnderstood, path + ": too long for a session description"};
    Outcome parsed = ParseSdp(text, sdp);
    if (!parsed.IsOk()) parsed.text.insert(0, path + ": ");
    return parsed;
}

} // namespace tool
