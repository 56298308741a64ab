// The first picture of a server that can be decoded.
#include "commands/audience.h"
#include "commands/commands.h"

namespace tool {
namespace {

constexpr Example kExamples[] = {{"rtsptap snapshot rtsp://camera.local/live -o now.jpg", ""},
                                 {"rtsptap snapshot rtsp://camera.local/live -o - --format png > now.png", ""}};

struct SnapshotSettings {
    ServerSettings server;
    OutputSettings output;
    std::chrono::milliseconds limit{10000}; // from playing to the picture
};

OptionGroup PictureOptions(SnapshotSettings &settings) {
    OptionGroup group = {"Picture", FileOptions(settings.output, kPictures, true)};
    group.options.push_back(LatencyOption(settings.server.latency, RecordedLatency()));
    group.options.push_back(
        {"--limit", "TIME", "give up after so long without a picture (default: 10s)", IntoTime(settings.limit)});
    return group;
}

Outcome Snapshot(const SnapshotSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kPictures, output.Data(), interruption, file);
    if (!failed.IsOk()) return failed;
    ServerSettings server = settings.server;
    server.idleTimeout = {}; // the limit is one for everything
    file.latency = WaitingInOrder(server);
    return ReceiveFromServer(server, settings.limit, AudienceOf({}, file), interruption);
}

} // namespace

Command SnapshotCommand() {
    const auto settings = std::make_shared<SnapshotSettings>();
    ServerSettings &server = settings->server;
    return {.name = "snapshot",
            .summary = "write the first picture of a server to a file",
            .examples = kExamples,
            .notes = {},
            .argument = UrlArgument(server),
            .groups = {PictureOptions(*settings), ServerOptions(server), ConnectingOptions(server)},
            .run = [settings](const LibraryOutput &output, Interruption &interruption) {
                return Snapshot(*settings, output, interruption);
            }};
}

} // namespace tool
