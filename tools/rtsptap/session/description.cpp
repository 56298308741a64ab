#include "session/description.h"

#include "base/secrets.h"
#include "base/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>

namespace tool {
namespace {

constexpr uint16_t kFirstCapturePort = 5004; // the customary RTP port
constexpr std::size_t kLongestBytes = 65536; // of a file; more is no description

std::string WithLetters(std::string text, int (*change)(int)) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [change](unsigned char letter) { return static_cast<char>(change(letter)); });
    return text;
}

// What stands before the separator; the text goes on behind it.
std::string_view Until(std::string_view &text, std::string_view separators) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

// Calls take(line, value) for every line that is not empty until that returns false; the value is what stands
// behind the letter and its "=".
template <typename Take> void ForEachLine(std::string_view text, Take take) {
    while (!text.empty()) {
        std::string_view line = Until(text, "\n");
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.empty() && !take(line, line.substr(std::min<std::size_t>(2, line.size())))) return;
    }
}

template <typename Number> bool ParseWhole(std::string_view text, Number &number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

struct Mapping {
    std::string encodingName;
    int32_t clockRate = 0;
    int32_t channels = 0; // 0: not said
};

// One m= line with the lines behind it.
struct Section {
    std::string medium;
    uint16_t port = 0;
    std::string protocol;
    std::vector<int> payloadTypes;
    std::map<int, Mapping> mappings;       // by payload type, as the next
    std::map<int, std::string> parameters; // of a=fmtp, payload type first
    std::string group;
};

// "video 5004/2 RTP/AVP 96 97"
bool ParseMedia(std::string_view value, Section &section) {
    section.medium = Until(value, " ");
    std::string_view ports = Until(value, " ");
    section.protocol = Until(value, " ");
    while (!value.empty()) {
        int payloadType = 0;
        if (ParseWhole(Until(value, " "), payloadType)) section.payloadTypes.push_back(payloadType);
    }
    return ParseWhole(Until(ports, "/"), section.port) && !section.protocol.empty();
}

// "rtpmap:96 mpeg4-generic/44100/2", "fmtp:96 mode=AAC-hbr"; false when it is malformed.
bool ParseAttribute(std::string_view value, Section &section) {
    const std::string_view name = Until(value, ":");
    if (name == "fmtp") section.parameters.emplace(std::atoi(std::string(value).c_str()), value);
    if (name != "rtpmap") return true;
    int payloadType = 0;
    Mapping mapping;
    if (!ParseWhole(Until(value, " "), payloadType)) return false;
    mapping.encodingName = Until(value, "/");
    const bool hasClock = ParseWhole(Until(value, "/"), mapping.clockRate) && mapping.clockRate > 0;
    if (!hasClock || (!value.empty() && !ParseWhole(value, mapping.channels)) || mapping.channels < 0) return false;
    section.mappings.emplace(payloadType, mapping);
    return true;
}

// "IN IP4 239.1.2.3/127"; a unicast address is the receiver's own and says nothing.
std::string GroupOf(std::string_view value) {
    Until(value, " ");
    Until(value, " ");
    const std::string address(Until(value, "/"));
    in_addr v4 = {};
    in6_addr v6 = {};
    const bool isGroup = (inet_pton(AF_INET, address.c_str(), &v4) == 1 && IN_MULTICAST(ntohl(v4.s_addr))) ||
                         (inet_pton(AF_INET6, address.c_str(), &v6) == 1 && IN6_IS_ADDR_MULTICAST(&v6));
    return isGroup ? address : "";
}

bool ParseLine(std::string_view line, std::string_view value, std::string &group, std::vector<Section> &sections) {
    const bool isField = line.size() > 1 && line[1] == '=';
    if (isField && line[0] == 'c') (sections.empty() ? group : sections.back().group) = GroupOf(value);
    if (isField && line[0] == 'a' && !sections.empty()) return ParseAttribute(value, sections.back());
    if (!isField || line[0] != 'm') return true;
    sections.emplace_back().group = group;
    return ParseMedia(value, sections.back());
}

// In capitals; of names for one codec that differ in nothing the usual one.
std::string EncodingNameOf(const Codec &codec, const std::string &described) {
    const bool isTheSame = codec.type != 0 && *codec.variant == '\0';
    return isTheSame ? codec.encodingName : WithLetters(described, std::toupper);
}

// Of the first payload type that can be received; false when there is none.
bool FindFormat(const Section &section, int32_t number, StreamFormat &format) {
    for (const int payloadType : section.payloadTypes) {
        Mapping mapping;
        if (const auto found = section.mappings.find(payloadType); found != section.mappings.end())
            mapping = found->second;
        else if (const Codec *codec = CodecOfPayloadType(payloadType); codec != nullptr)
            mapping = {codec->encodingName, codec->clockRate,
                       payloadType == codec->payloadType ? codec->channels : 2};
        const int32_t codecType = CodecTypeOfEncoding(mapping.encodingName);
        if (codecType == 0) continue;
        format = FormatOfCodec({number, mapping.encodingName, codecType, true, mapping.clockRate}, section.port);
        format.encodingName = EncodingNameOf(*format.codec, mapping.encodingName);
        format.payloadType = payloadType;
        format.clockRate = mapping.clockRate;
        format.channels = mapping.channels;
        const auto parameters = section.parameters.find(payloadType);
        if (parameters != section.parameters.end()) format.parameters = parameters->second;
        return true;
    }
    return false;
}

// Why nothing can be received from a section; empty when something can.
std::string TakeSection(const Section &section, int32_t number, SdpFile &sdp) {
    StreamFormat format;
    if (section.port == 0) return "its port is 0";
    if (!section.protocol.starts_with("RTP/AVP")) return section.protocol + " is not supported";
    if (!FindFormat(section, number, format)) return "its codec is not supported";
    for (const SdpStream &stream : sdp.streams)
        if (stream.format.port == format.port) return "an earlier one has the same port";
    sdp.streams.push_back({format, section.group});
    return "";
}

Outcome ParseSdp(std::string_view text, SdpFile &sdp) {
    std::vector<Section> sections;
    std::string group; // of the session
    std::string malformed;
    ForEachLine(text, [&](std::string_view line, std::string_view value) {
        if (!ParseLine(line, value, group, sections)) malformed = line.substr(0, 80);
        return malformed.empty();
    });
    if (!malformed.empty())
        return {ExitCode::kNotUnderstood, "the description has a line that is not understood: " + malformed};
    if (sections.empty()) return {ExitCode::kNotUnderstood, "no session description: it has no m= line"};
    int32_t number = 0;
    for (const Section &section : sections) {
        const std::string why = TakeSection(section, ++number, sdp);
        if (!why.empty())
            sdp.omissions.push_back("stream " + std::to_string(number) + " (" + section.medium +
                                    ") is left out: " + why);
    }
    return {};
}

} // namespace

StreamFormat FormatOfCodec(const Stream &stream, uint16_t port) {
    const Codec *const codec = CodecOf(stream.codecType);
    return {
        stream, codec, codec->payloadType, codec->clockRate, 0, std::string(codec->encodingName) + codec->variant,
        "",     port};
}

std::vector<StreamFormat> FormatsOfSession(const Session &session, const std::vector<Stream> &streams) {
    std::vector<StreamFormat> formats;
    for (const Stream &stream : streams) {
        RTSPTapStreamDescription described;
        if (!stream.isReadable || !session.Describe(stream.number, described)) continue;
        const auto port = static_cast<uint16_t>(kFirstCapturePort + 2 * (stream.number - 1));
        StreamFormat format = FormatOfCodec(stream, port);
        format.encodingName = EncodingNameOf(*format.codec, described.encodingName);
        format.payloadType = described.payloadType;
        if (described.clockRate > 0) format.clockRate = described.clockRate;
        format.channels = described.channels;
        if (described.fmtp != nullptr)
            format.parameters = std::to_string(described.payloadType) + " " + described.fmtp;
        formats.push_back(format);
    }
    return formats;
}

bool LacksParameterSets(const StreamFormat &format) {
    if (format.codec->parameterSets == nullptr) return false;
    const auto fields = SplitParameters(format.parameters);
    return std::none_of(fields.begin(), fields.end(), [&format](const auto &field) {
        return field.first == format.codec->parameterSets && !field.second.empty();
    });
}

std::vector<std::pair<std::string, std::string>> SplitParameters(const std::string &parameters) {
    std::vector<std::pair<std::string, std::string>> fields;
    const std::string whole = Trimmed(parameters);
    std::string_view text = whole;
    Until(text, " \t"); // the payload type
    while (!text.empty()) {
        std::string_view value = Until(text, ";");
        const bool hasValue = value.find('=') != value.npos;
        const std::string name = WithLetters(Trimmed(Until(value, "=")), std::tolower);
        if (hasValue) fields.emplace_back(name, Trimmed(value));
    }
    return fields;
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
