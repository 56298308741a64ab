#include "cli/option_groups.h"

#include "base/codec_names.h"
#include "cli/option_values.h"

namespace tool {
namespace {

Option Output(OutputSettings &output, bool isRequired) {
    return {"-o,--output", "FILE",
            "write there, in the format of the extension; %Y, %H and so on as in strftime; - is standard output",
            Into(output.file), isRequired};
}

Option Format(OutputSettings &output, unsigned formats) {
    std::string names = FormatNames(formats);
    for (std::size_t at = 0; (at = names.find(", ", at)) != std::string::npos;) names.replace(at, 2, "|");
    return {"--format", names, "the format, whatever the extension says", Into(output.format)};
}

Option Force(OutputSettings &output) {
    return {"--force", "", "overwrite a file that exists; otherwise it is asked for, or refused",
            Into(output.force)};
}

Option NoClobber(OutputSettings &output) {
    return {"--no-clobber", "", "never overwrite a file, and do not ask", Into(output.noClobber)};
}

Option Latency(std::optional<std::chrono::milliseconds> &latency, const std::string &otherwise) {
    return {"--latency", "TIME", "wait so long for late packets, to put them in order (default: " + otherwise + ")",
            IntoLatency(latency)};
}

const std::string kRecordedLatency = TimeText(kUsualLatency) + " over UDP, 0 over TCP";

Reader IntoPort(ListenPort &port, bool video) {
    return [&port, video](const std::string &text) -> std::string {
        if (ParseListenPort(text, video, port)) return "";
        return "is not CODEC@PORT with a codec of " + Joined(CodecNames(video), ", ");
    };
}

std::vector<std::string> AllCodecs() {
    std::vector<std::string> names = CodecNames(true);
    for (const std::string &name : CodecNames(false)) names.push_back(name);
    return names;
}

Option Port(const char *medium, ListenPort &port, bool video) {
    std::vector<std::string> words = CodecNames(video);
    const std::string help = "receive " + std::string(medium) + "; CODEC is one of " + Joined(words, ", ");
    for (std::string &word : words) word += "@";
    return {"--" + std::string(medium), "CODEC@PORT", help, IntoPort(port, video), false, words};
}

} // namespace

OptionGroup ServerOptions(ServerSettings &server) {
    return {"Server",
            {{"-t,--transport", "auto|udp|tcp|multicast",
              "carry the media over this; auto, the default, is UDP, then TCP if that brings nothing",
              IntoChoice<Transport>(server.transport, {{"auto", Transport::kAuto},
                                                       {"udp", Transport::kUdp},
                                                       {"tcp", Transport::kTcp},
                                                       {"multicast", Transport::kMulticast}})},
             {"-u,--user",
              "NAME",
              "log in as NAME; a password that comes from nowhere else is asked for on the terminal",
              IntoUser(server.user),
              false,
              {},
              true},
             {"--password-file", "FILE", "take the password from the first line of FILE; - is standard input",
              Into(server.passwordFile)},
             {"--follow", "[=N]", "go where the server sends us, so often in a row (default: 5; 0: not at all)",
              IntoHops(server.follow)},
             {"-H,--header", "HEADER", "add 'METHOD: Name: value' to the requests of a method; may be repeated",
              Into(server.headers)}}};
}

OptionGroup ConnectingOptions(ServerSettings &server) {
    return {"Waiting",
            {{"--connect-timeout", "TIME", "give up when a step before the media takes longer (default: 10s)",
              IntoTime(server.connectTimeout)}}};
}

OptionGroup WaitingOptions(ServerSettings &server) {
    OptionGroup group = ConnectingOptions(server);
    group.options.push_back({"--idle-timeout", "TIME",
                             "give up when no stream has brought a packet for so long (default: 10s)",
                             IntoTime(server.idleTimeout)});
    return group;
}

OptionGroup StayingOptions(ServerSettings &server, bool records) {
    return {"Staying",
            {{"--reconnect", "[=N]", "connect again when the session breaks; give up after N failures in a row",
              IntoCount(server.reconnect)},
             {"--keepalive", "",
              "repeat PLAY at half the session time-out, also where the server names none (then 60s)",
              Into(server.keepalive, true)},
             {"--no-keepalive", "", "repeat it nowhere, not where the server names a time-out either",
              Into(server.keepalive, false)},
             Latency(server.latency, records ? kRecordedLatency : "0")}};
}

OptionGroup DurationOptions(std::chrono::milliseconds &duration, const std::string &otherwise) {
    return {"Duration",
            {{"--duration", "TIME", "stop after so long (default: " + otherwise + ")", IntoTime(duration)}}};
}

OptionGroup FigureOptions(ReceptionSettings &reception) {
    return {
        "Figures and limits",
        {{"--stats-json", "FILE", "write a JSON object every second and a summary at the end; - is standard output",
          Into(reception.statsJson)},
         {"--max-loss", "PERCENT", "end with status 14 if a stream lost more of its packets",
          IntoPercent(reception.health.maxLossPercent)},
         {"--max-gap", "TIME", "end with status 14 if a stream brought nothing for longer, reconnecting included",
          IntoGap(reception.health.maxGap)},
         {"--min-rate", "RATE",
          "end with status 14 if all streams together brought fewer bits per second, as 500k or 2M",
          IntoRate(reception.health.minBitsPerSecond)},
         {"--expect-codec", "CODEC", "end with status 14 if no stream of this codec came; may be repeated",
          IntoCodecs(reception.health.expectedCodecs), false, AllCodecs()}}};
}

OptionGroup RecordingOptions(OutputSettings &output, bool isRequired) {
    return {"Recording",
            {Output(output, isRequired),
             Format(output, kRecordings),
             {"--split", "TIME",
              "begin a new file, NAME-001 and so on behind those that exist, at the key frame after so long",
              IntoTime(output.split)},
             Force(output),
             NoClobber(output)}};
}

OptionGroup PictureOptions(OutputSettings &output, std::chrono::milliseconds &limit, ServerSettings &server) {
    return {"Picture",
            {Output(output, true),
             Format(output, kPictures),
             Force(output),
             NoClobber(output),
             Latency(server.latency, kRecordedLatency),
             {"--limit", "TIME", "give up after so long without a picture (default: 10s)", IntoTime(limit)}}};
}

OptionGroup PortOptions(ListenSettings &listen) {
    return {"Ports",
            {Port("video", listen.video, true),
             Port("audio", listen.audio, false),
             {"--sdp", "FILE", "take codecs, ports and parameters from a session description; - is standard input",
              Into(listen.sdpFile)},
             Latency(listen.latency, TimeText(kUsualLatency) + " for a recording, else 0")}};
}

OptionGroup PageOptions(OutputSettings &output) {
    return {"Page",
            {{"-o,--output", "FILE", "write the page there; - is standard output", Into(output.file), true}}};
}

OptionGroup GeneralOptions(ConsoleSettings &console) {
    const Reader nothing = [](const std::string &) { return std::string(); }; // it counts that they are there
    const Reader noColor = [&console](const std::string &) {
        console.color = false;
        return std::string();
    };
    return {
        "General",
        {{"-q,--quiet", "", "say nothing but errors, and show no table", Into(console.quiet)},
         {"-v,--verbose", "", "show the dialogue with the server, and what the library prints, on standard error",
          Into(console.verbose)},
         {"--no-color", "", "use no colors; the variable NO_COLOR does the same", noColor},
         {"-h,--help", "", "show this help, or that of a command", nothing},
         {"--version", "", "show the version and what the program was built with", nothing}}};
}

} // namespace tool
