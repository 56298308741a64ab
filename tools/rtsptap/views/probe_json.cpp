#include "views/probe_result.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

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

Json ServerOf(const ServerFacts &facts) {
    return {{"address", Known(facts.address)},
            {"port", Known(facts.port)},
            {"software", Known(facts.software)},
            {"methods", Methods(facts.methods)},
            {"authentication", Known(facts.authentication)},
            {"session_timeout_s", facts.sessionTimeout ? Json(facts.sessionTimeout->count()) : Json()}};
}

Json PictureOf(const std::optional<PictureFormat> &picture) {
    if (!picture) return {};
    return {{"width", picture->width},
            {"height", picture->height},
            {"profile", Known(picture->profile)},
            {"level", Known(picture->level)}};
}

Json StreamOf(const ProbedStream &probed) {
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
            {"picture", PictureOf(probed.picture)},
            {"parameters", Known(probed.parameters)},
            {"control", Known(probed.control)},
            {"first_packet_ms", Milliseconds(probed.firstPacket)},
            {"first_key_frame_ms", Milliseconds(probed.firstKeyFrame)}};
}

} // namespace

std::string ProbeJson(const ProbeResult &result) {
    Json phases = Json::array();
    for (const Phase &phase : result.phases)
        phases.push_back({{"phase", phase.name}, {"ms", Milliseconds(phase.time)}});
    for (const auto &[name, time] :
         {std::pair("first packet", FirstPacketOf(result)), std::pair("first key frame", FirstKeyFrameOf(result))})
        if (time) phases.push_back({{"phase", name}, {"ms", Milliseconds(*time)}});
    Json streams = Json::array();
    for (const ProbedStream &probed : result.streams) streams.push_back(StreamOf(probed));
    const Json json = {{"schema", kSchema},
                       {"url", result.url},
                       {"exit_status", static_cast<int>(result.outcome.code)},
                       {"error", Known(result.outcome.text)},
                       {"transport", result.transport ? Json(TransportName(*result.transport)) : Json()},
                       {"server", ServerOf(result.facts)},
                       {"phases", std::move(phases)},
                       {"streams", std::move(streams)}};
    // What a server sent need not be UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tool
