// rtsptap: the command line. Data goes to standard output, everything else to standard error.
#include "codec_names.h"
#include "listen.h"
#include "play.h"
#include "record.h"
#include "snapshot.h"

#include <CLI/CLI.hpp>

namespace {

using tool::ExitCode;
using tool::Outcome;

struct CommandLine {
    tool::PlaySettings play;
    tool::ListenSettings listen;
    tool::RecordSettings record;
    tool::SnapshotSettings snapshot;
    double seconds = 0;
    double splitSeconds = 0;
    double limitSeconds = 10;
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

void AddTime(CLI::App &command, const char *name, double &seconds, const char *help) {
    const std::map<std::string, double> units{{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}};
    command.add_option(name, seconds, help)
        ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::CASE_SENSITIVE, "TIME"))
        ->check(CLI::PositiveNumber);
}

void AddDuration(CLI::App &command, double &seconds) {
    AddTime(command, "--duration", seconds, "stop after so long, as in 5s or 10m (default: until interrupted)");
}

void AddServer(CLI::App &command, tool::PlaySettings &play, std::string &sink) {
    command.add_option("url", play.url, "rtsp://[USER[:PASSWORD]@]HOST[:PORT]/PATH")->required();
    command.add_option("-t,--transport", sink, "how media travels (default: udp)")
        ->check(Transport(play.transport));
    command.add_option("-u,--user", play.user, "user name; the password comes from RTSPTAP_PASSWORD");
}

void AddOutput(CLI::App &command, tool::OutputSettings &output, unsigned formats) {
    command.add_option("-o,--output", output.file, "the file, its format by its extension; - is standard output");
    command.add_option("--format", output.format, "instead of the extension: " + tool::FormatNames(formats));
}

void AddRecording(CLI::App &command, tool::OutputSettings &output, double &splitSeconds) {
    AddOutput(command, output, tool::kRecordings);
    AddTime(command, "--split", splitSeconds,
            "begin a new file, NAME-001 and so on, at the key frame after so long");
}

void DescribeRecording(CLI::App &app, CommandLine &line, std::string &sink) {
    CLI::App *record = app.add_subcommand("record", "write the streams of an RTSP server to a file");
    AddServer(*record, line.record.play, sink);
    AddRecording(*record, line.record.output, line.splitSeconds);
    AddDuration(*record, line.seconds);
    record->get_option("--output")->required();

    CLI::App *snapshot = app.add_subcommand("snapshot", "write the first picture of an RTSP server to a file");
    AddServer(*snapshot, line.snapshot.play, sink);
    AddOutput(*snapshot, line.snapshot.output, tool::kPictures);
    AddTime(*snapshot, "--limit", line.limitSeconds, "give up after so long without a picture (default: 10s)");
    snapshot->get_option("--output")->required();
}

void DescribeCommands(CLI::App &app, CommandLine &line, std::string &sink) {
    app.description("Receives real-time media with RTSP and RTP.\n\n"
                    "  rtsptap play rtsp://camera.local/live --duration 10s\n"
                    "  rtsptap record rtsp://camera.local/live -o walk.mp4 --duration 10m\n"
                    "  rtsptap snapshot rtsp://camera.local/live -o now.jpg\n"
                    "  RTSPTAP_PASSWORD=secret rtsptap play rtsp://camera.local/live -u admin --transport tcp\n"
                    "  rtsptap listen --video h264@5004 --audio pcmu@5006");
    app.require_subcommand(1);
    app.add_flag("-v,--verbose", line.verbose, "show what the library prints, on standard error");
    app.fallthrough();

    CLI::App *play = app.add_subcommand("play", "receive the streams of an RTSP server and report on them");
    AddServer(*play, line.play, sink);
    AddDuration(*play, line.seconds);

    CLI::App *listen = app.add_subcommand("listen", "receive RTP on local ports, without RTSP");
    listen->add_option("--video", sink, "one of " + tool::CodecNames(true))
        ->check(ListenOn(line.listen.video, true));
    listen->add_option("--audio", sink, "one of " + tool::CodecNames(false))
        ->check(ListenOn(line.listen.audio, false));
    AddRecording(*listen, line.listen.output, line.splitSeconds);
    AddDuration(*listen, line.seconds);
    DescribeRecording(app, line, sink);
}

std::chrono::milliseconds Milliseconds(double seconds) {
    return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
}

Outcome RunCommand(CommandLine &line) {
    tool::Interruption interruption;
    const tool::LibraryOutput output(line.verbose);
    line.play.duration = line.listen.duration = line.record.play.duration = Milliseconds(line.seconds);
    line.listen.output.split = line.record.output.split = Milliseconds(line.splitSeconds);
    line.snapshot.limit = Milliseconds(line.limitSeconds);
    const std::string command = line.chosen->get_name();
    if (command == "play") return Play(line.play, output, interruption);
    if (command == "record") return Record(line.record, output, interruption);
    if (command == "snapshot") return Snapshot(line.snapshot, output, interruption);
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
