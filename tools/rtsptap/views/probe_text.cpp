#include "base/secrets.h"
#include "base/text.h"
#include "views/probe_result.h"

#include <algorithm>

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

std::string TimeRow(const std::string &name, const FromPlay &time) {
    if (!time) return "";
    return Row("  " + name, Formatted("%9.1f ms", static_cast<double>(time->count()) / 1000));
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
    if (!facts.address.empty()) text += Row("Address", facts.address + ":" + std::to_string(facts.port));
    text += Row("Server", Presentable(facts.software));
    text += Row("Methods", Presentable(facts.methods));
    text += Row("Authentication", facts.authentication);
    if (facts.sessionTimeout)
        text += Row("Session", "ends after " + std::to_string(facts.sessionTimeout->count()) + " s of silence");
    return text + Row("Transport", result.transport ? TransportName(*result.transport) : "");
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
        if (!probed.picture->profile.empty()) Append(line, probed.picture->profile + " " + probed.picture->level);
    }
    if (probed.frameRate > 0) Append(line, Formatted("%g frames/s", probed.frameRate));
    return line;
}

std::string ProbeText(const ProbeResult &result) {
    std::string text = ServerText(result);
    for (const ProbedStream &probed : result.streams)
        text += "\n" + StreamText(probed, result.transport.has_value());
    if (!result.phases.empty()) text += "\nTime\n";
    for (const Phase &phase : result.phases) text += TimeRow(phase.name, phase.time);
    return text + TimeRow("first packet", FirstPacketOf(result)) +
           TimeRow("first key frame", FirstKeyFrameOf(result));
}

} // namespace tool
