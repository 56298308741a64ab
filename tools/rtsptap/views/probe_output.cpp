// What probe found out, as text for people and as JSON for programs.
#include "base/secrets.h"
#include "base/text.h"
#include "views/probe_result.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

// "name            value", or nothing for an empty value.
std::string Row(const std::string &name, const std::string &value) {
    constexpr std::size_t kValueColumn = 20;
    if (value.empty()) return "";
    std::string row = name;
    row.resize(std::max(row.size() + 2, kValueColumn), ' ');
    return row + value + "\n";
}

void Append(std::string &list, const std::string &item) {
    if (!item.empty()) list += (list.empty() ? "" : ", ") + item;
}

std::string After(const FromPlay &time) {
    return time ? Formatted("%.1f ms after PLAY", static_cast<double>(time->count()) / 1000) : "none came";
}

std::string StreamText(const ProbedStream &probed, bool isPlayed) {
    std::string text = Row("Stream " + std::to_string(probed.stream.number), Headline(probed));
    text += Row("  payload type", std::to_string(probed.payloadType));
    text += Row("  control", Presentable(probed.control));
    text += Row("  parameters", Presentable(probed.parameters));
    if (!isPlayed || !probed.stream.isReadable) return text;
    text += Row("  first packet", After(probed.firstPacket));
    if (probed.isVideo) text += Row("  first key frame", After(probed.firstKeyFrame));
    return text;
}

std::string ServerText(const ProbeResult &result) {
    const ServerFacts &facts = result.facts;
    std::string text = Row("URL", result.url);
    if (!facts.address.empty()) text += Row("Address", HostAndPort(Url{"", "", facts.address, facts.port, ""}));
    text += Row("Server", Presentable(facts.software));
    text += Row("Methods", Presentable(facts.methods));
    text += Row("Authentication", facts.authentication);
    if (facts.sessionTimeout)
        text += Row("Session", "ends after " + std::to_string(facts.sessionTimeout->count()) + " s of silence");
    return text + Row("Transport", result.transport ? TransportName(*result.transport) : "");
}

using Json = nlohmann::ordered_json;

constexpr int kSchema = 1;

Json Milliseconds(std::chrono::microseconds time) { return static_cast<double>(time.count()) / 1000; }

Json Milliseconds(const FromPlay &time) { return time ? Milliseconds(*time) : Json(); }

// What is not known is null, not 0 and not "".
template <typename Value> Json Known(const Value &value) { return value == Value() ? Json() : Json(value); }

std::vector<std::string> Methods(const std::string &list) {
    constexpr const char *kSeparators = ", \t";
    std::vector<std::string> methods;
    for (std::size_t at = 0; (at = list.find_first_not_of(kSeparators, at)) != std::string::npos;) {
        const std::size_t end = std::min(list.find_first_of(kSeparators, at), list.size());
        methods.push_back(list.substr(at, end - at));
        at = end;
    }
    return methods;
}

Json JsonOf(const ServerFacts &facts) {
    return {{"address", Known(facts.address)},
            {"port", Known(facts.port)},
            {"software", Known(facts.software)},
            {"methods", Methods(facts.methods)},
            {"authentication", Known(facts.authentication)},
            {"session_timeout_s", facts.sessionTimeout ? Json(facts.sessionTimeout->count()) : Json()}};
}

Json JsonOf(const std::optional<RTSPTapVideoFormat> &picture) {
    if (!picture) return {};
    return {{"width", picture->width},
            {"height", picture->height},
            {"profile", Known(std::string(picture->profileName))},
            {"level", Known(std::string(picture->levelName))}};
}

Json JsonOf(const ProbedStream &probed) {
    return {{"stream", probed.stream.number},
            {"codec", Known(probed.stream.codec)},
            {"media", Known(probed.stream.media)},
            {"received", probed.stream.isReadable},
            {"payload_type", probed.payloadType},
            {"clock_hz", Known(probed.stream.clockRate)},
            {"channels", Known(probed.channels)},
            {"samples_per_s", Known(probed.samplingRate)},
            {"frames_per_s", Known(probed.frameRate)},
            {"bandwidth", Known(probed.bandwidth)},
            {"picture", JsonOf(probed.picture)},
            {"parameters", Known(probed.parameters)},
            {"control", Known(probed.control)},
            {"srtp", Known(probed.srtp)},
            {"first_packet_ms", Milliseconds(probed.firstPacket)},
            {"first_key_frame_ms", Milliseconds(probed.firstKeyFrame)}};
}

} // namespace

std::string Headline(const ProbedStream &probed) {
    std::string line = Presentable(probed.stream.codec.empty() ? "unknown codec" : probed.stream.codec);
    if (!probed.stream.media.empty()) line += " " + Presentable(probed.stream.media);
    if (!probed.stream.isReadable) Append(line, "left out");
    if (probed.stream.clockRate > 0) Append(line, "clock " + std::to_string(probed.stream.clockRate) + " Hz");
    if (probed.samplingRate > 0) Append(line, std::to_string(probed.samplingRate) + " samples/s");
    if (probed.channels > 0)
        Append(line, std::to_string(probed.channels) + (probed.channels == 1 ? " channel" : " channels"));
    if (probed.picture) {
        Append(line, std::to_string(probed.picture->width) + "x" + std::to_string(probed.picture->height));
        const std::string profile = probed.picture->profileName;
        if (!profile.empty()) Append(line, profile + " " + probed.picture->levelName);
    }
    if (probed.frameRate > 0) Append(line, Formatted("%g frames/s", probed.frameRate));
    if (!probed.srtp.empty()) Append(line, "SRTP " + Presentable(probed.srtp));
    return line;
}

// "no space after a header's colon: tolerated, RFC 2326 4.2"
std::string LineOf(const UsedRule &rule) {
    std::string section = rule.section;
    if (const std::size_t comma = section.find(','); comma != section.npos) section.erase(comma, 1);
    return std::string(rule.name) + ": tolerated, " + section + "\n";
}

std::string ProbeText(const ProbeResult &result, bool explains) {
    std::string text = ServerText(result);
    for (const ProbedStream &probed : result.streams)
        text += "\n" + StreamText(probed, result.transport.has_value());
    if (!result.phases.empty()) text += "\nTime\n";
    for (const Phase &phase : PhasesWithMedia(result))
        text += Row("  " + phase.name, Formatted("%9.1f ms", static_cast<double>(phase.time.count()) / 1000));
    if (explains) text += result.tolerated.empty() ? "\nnothing had to be tolerated\n" : "\n";
    for (const UsedRule &rule : result.tolerated) text += explains ? LineOf(rule) : "";
    return text;
}

std::string ProbeJson(const ProbeResult &result) {
    Json phases = Json::array();
    for (const Phase &phase : PhasesWithMedia(result))
        phases.push_back({{"phase", phase.name}, {"ms", Milliseconds(phase.time)}});
    Json streams = Json::array();
    for (const ProbedStream &probed : result.streams) streams.push_back(JsonOf(probed));
    Json tolerated = Json::array();
    for (const UsedRule &rule : result.tolerated)
        tolerated.push_back(
            {{"number", rule.number}, {"name", rule.name}, {"section", rule.section}, {"count", rule.count}});
    const Json json = {{"schema", kSchema},
                       {"url", result.url},
                       {"exit_status", static_cast<int>(result.outcome.code)},
                       {"error", Known(result.outcome.text)},
                       {"transport", result.transport ? Json(TransportName(*result.transport)) : Json()},
                       {"server", JsonOf(result.facts)},
                       {"phases", std::move(phases)},
                       {"streams", std::move(streams)},
                       {"tolerated", std::move(tolerated)}};
    // What a server sent need not be UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tool
