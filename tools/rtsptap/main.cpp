// rtsptap: the command line. Data goes to standard output, everything else to standard error.
#include "codec_names.h"
#include "listen.h"
#include "play.h"

#include <CLI/CLI.hpp>

namespace {

using tool::ExitCode;
using tool::Outcome;

struct CommandLine {
    tool::PlaySettings play;
    tool::ListenSettings listen;
    double seconds = 0;
    bool verbose = false;
    CLI::App *chosen = nullptr;
};

// CLI11 speaks in exceptions and texts; this is the only place that does.
CLI::Validator Transport(DataProto &transport) {
    return CLI::Validator(
        [&transport](std::string &text) {
            if (text != "udp" && text != "tcp") return std::string("udp or tcp");
            transport = text == "tcp" ? DATA_PROTO_TCP : DATA_PROTO_UDP;
            return std::string();
        },
        "udp|tcp");
}

CLI::Validator ListenOn(tool::ListenPort &port, bool video) {
    return CLI::Validator(
        [&port, video](std::string &text) {
            if (ParseListenPort(text, video, port)) return std::string();
            return "CODEC@PORT with a codec of " + tool::CodecNames(video);
        },
        "CODEC@PORT");
}

void AddDuration(CLI::App &command, double &seconds) {
    const std::map<std::string, double> units{{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}};
    command.add_option("--duration", seconds, "stop after so long, as in 5s or 10m (default: until interrupted)")
        ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::CASE_SENSITIVE, "TIME"))
        ->check(CLI::PositiveNumber);
}

void DescribeCommands(CLI::App &app, CommandLine &line, std::string &sink) {
    app.description("Receives real-time media with RTSP and RTP.\n\n"
                    "  rtsptap play rtsp://camera.local/live --duration 10s\n"
                    "  RTSPTAP_PASSWORD=secret rtsptap play rtsp://camera.local/live -u admin --transport tcp\n"
                    "  rtsptap listen --video h264@5004 --audio pcmu@5006");
    app.require_subcommand(1);
    app.add_flag("-v,--verbose", line.verbose, "show what the library prints, on standard error");
    app.fallthrough();

    CLI::App *play = app.add_subcommand("play", "receive the streams of an RTSP server and report on them");
    play->add_option("url", line.play.url, "rtsp://[USER[:PASSWORD]@]HOST[:PORT]/PATH")->required();
    play->add_option("-t,--transport", sink, "how media travels (default: udp)")
        ->check(Transport(line.play.transport));
    play->add_option("-u,--user", line.play.user, "user name; the password comes from RTSPTAP_PASSWORD");
    AddDuration(*play, line.seconds);

    CLI::App *listen = app.add_subcommand("listen", "receive RTP on local ports, without RTSP");
    listen->add_option("--video", sink, "one of " + tool::CodecNames(true))
        ->check(ListenOn(line.listen.video, true));
    listen->add_option("--audio", sink, "one of " + tool::CodecNames(false))
        ->check(ListenOn(line.listen.audio, false));
    AddDuration(*listen, line.seconds);
}

Outcome RunCommand(CommandLine &line) {
    tool::Interruption interruption;
    const tool::LibraryOutput output(line.verbose);
    const auto duration = std::chrono::milliseconds(static_cast<int64_t>(line.seconds * 1000));
    line.play.duration = duration;
    line.listen.duration = duration;
    if (line.chosen->get_name() == "play") return Play(line.play, output, interruption);
    return Listen(line.listen, output, interruption);
}

} // namespace

int main(int argc, char **argv) {
    CommandLine line;
    CLI::App app;
    std::string sink;
    DescribeCommands(app, line, sink);
    try {
        app.parse(argc, argv);
        line.chosen = app.get_subcommands().front();
        const Outcome outcome = RunCommand(line);
        if (!outcome.text.empty()) std::fprintf(stderr, "rtsptap: %s\n", outcome.text.c_str());
        return static_cast<int>(outcome.code);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "rtsptap: %s\n", error.what());
        const bool noOutput = dynamic_cast<const std::system_error *>(&error) != nullptr;
        return static_cast<int>(noOutput ? ExitCode::kOutputFailed : ExitCode::kUsage);
    }
}
