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

// ---- Files

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
    in_addr parsed = {};
    const bool isGroup = inet_pton(AF_INET, address.c_str(), &parsed) == 1 && IN_MULTICAST(ntohl(parsed.s_addr));
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
        format.encodingName = WithLetters(mapping.encodingName, std::toupper);
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
    for (const SdpStream &stream : sdp.streams) {
        if (stream.format.codec == format.codec) return "an earlier one has the same codec";
        if (stream.format.port == format.port) return "an earlier one has the same port";
    }
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

// ---- Faults

using Text = std::string;

// What is behind the first mark; empty without one.
Text Behind(const Text &text, char mark) {
    const std::size_t at = text.find(mark);
    return at == text.npos ? "" : text.substr(at + 1);
}

const char *FaultOfAddress(const Text &value, bool) {
    return value.find("IP4") == value.npos ? "only IP4 is supported here" : nullptr;
}

const char *FaultOfTime(const Text &value, bool) {
    return std::atoi(Behind(value, ' ').c_str()) < 0 ? "the stop time must not be below 0" : nullptr;
}

const char *FaultOfBandwidth(const Text &value, bool) {
    constexpr std::size_t kNumber = 3; // behind two letters and a colon
    if (std::atoi(Behind(value, ':').c_str()) < 1) return "bandwidth must be at least 1";
    const bool isThere = value.size() > kNumber && std::atoi(value.c_str() + kNumber) != 0;
    return isThere ? nullptr : "bandwidth must follow two letters and a colon";
}

// rtpmap:96 H264/90000, of audio with channels: rtpmap:97 L16/44100/2
const char *FaultOfMap(const Text &value, bool isAudio) {
    constexpr std::size_t kLongestName = 32;
    const Text type = Behind(value, ':');
    const Text encoding = Behind(type, ' ');
    const std::size_t slash = encoding.find('/');
    if (value.find(':') == value.npos) return "the payload type is missing";
    if (std::atoi(type.c_str()) == 0 && type.rfind('0', 0) != 0) return "the payload type is no number";
    if (slash == encoding.npos) return "it must end in NAME/CLOCK";
    if (slash > kLongestName) return "the encoding name is longer than 32 characters";
    const Text clock = encoding.substr(slash + 1);
    if (std::atoi(clock.c_str()) == 0) return "the clock rate must not be 0";
    const bool hasChannels = isAudio && clock.find('/') != clock.npos;
    return hasChannels && std::atoi(Behind(clock, '/').c_str()) == 0 ? "the number of channels must not be 0"
                                                                     : nullptr;
}

const char *FaultOfParameters(const Text &, bool) { return nullptr; }

const char *FaultOfFrameRate(const Text &value, bool) {
    const Text rate = Behind(value, ':');
    return rate != "0.0" && std::atof(rate.c_str()) == 0 ? "the frame rate must not be 0" : nullptr;
}

const char *FaultOfControl(const Text &value, bool) {
    constexpr std::size_t kLongest = 256;
    if (value.find(':') == value.npos) return "the address is missing";
    return Behind(value, ':').size() > kLongest ? "the address is longer than 256 characters" : nullptr;
}

struct LineRule {
    bool inMedia;     // behind an m= line
    char name;        // of the line
    const char *mark; // found anywhere in its value
    const char *(*fault)(const Text &value, bool isAudio);
};

// In the order in which they are tried: the first that matches decides.
constexpr LineRule kRules[] = {
    {false, 'o', "", FaultOfAddress},
    {false, 'c', "", FaultOfAddress},
    {false, 't', "", FaultOfTime},
    {true, 'b', "", FaultOfBandwidth},
    {true, 'a', "rtpmap", FaultOfMap},
    {true, 'a', "fmtp", FaultOfParameters},
    {true, 'a', "framerate", FaultOfFrameRate},
    {true, 'a', "control", FaultOfControl},
};

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
        const RTSPStreamDescription *description = session.Description(stream.number);
        if (!stream.isReadable || description == nullptr) continue;
        const auto port = static_cast<uint16_t>(kFirstCapturePort + 2 * (stream.number - 1));
        StreamFormat format = FormatOfCodec(stream, port);
        format.encodingName = WithLetters(description->encodingName, std::toupper);
        format.payloadType = description->payloadNumber;
        if (description->clockRate > 0) format.clockRate = description->clockRate;
        format.channels = description->channels;
        if (description->fmtp != nullptr) format.parameters = description->fmtp;
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

int CountMedia(std::string_view description) {
    int count = 0;
    ForEachLine(description, [&count](std::string_view line, std::string_view) {
        count += line.starts_with("m=") ? 1 : 0;
        return true;
    });
    return count;
}

std::string FaultOfDescription(std::string_view description) {
    bool inMedia = false;
    bool isAudio = false;
    std::string text;
    ForEachLine(description, [&](std::string_view line, std::string_view behind) {
        const std::string value(behind);
        if (line[0] == 'm') {
            inMedia = true;
            isAudio = value.find("audio") != value.npos;
        }
        const auto *const rule = std::find_if(std::begin(kRules), std::end(kRules), [&](const LineRule &row) {
            return row.inMedia == inMedia && row.name == line[0] && value.find(row.mark) != value.npos;
        });
        const char *const fault = rule == std::end(kRules) ? nullptr : rule->fault(value, isAudio);
        if (fault != nullptr) text = Presentable(std::string(line)) + ": " + fault;
        return text.empty();
    });
    return text;
}

} // namespace tool
