// Receives the streams of a server and shows how they arrive.
#include "commands/audience.h"
#include "commands/commands.h"

namespace tool {
namespace {

constexpr Example kExamples[] = {
    {"rtsptap play rtsp://camera.local/live", "until Ctrl-C"},
    {"rtsptap play rtsp://camera.local/live -u admin -t tcp --duration 10s",
     "inside the RTSP connection; asks for the password"},
    {"rtsptap play rtsp://camera.local/live --duration 1m --max-loss 1 --min-rate 500k --expect-codec h264",
     "a health check: status 14 when a limit is not kept"},
    {"rtsptap play rtsp://camera.local/live --stats-json - --quiet | jq .", "figures once a second"}};

constexpr const char *kNotes[] = {
    "On a terminal one line per stream is redrawn up to four times a second; elsewhere, and with --verbose, "
    "one follows for each stream every ten seconds. At the end a table is written to standard output, or to "
    "standard error where that takes the figures.",
    "Jitter and loss are those of RFC 3550, counted from the packets received; a duplicate makes up for no "
    "loss. The jitter of the table is the average.",
    "Each line of --stats-json is an object with type, schema, time, elapsed_s, state and streams. The type "
    "is interval, with the figures of the last second and those of all, and summary in the last line. "
    "Unknown figures are null. The file json.md of the documentation says what every field is, and its unit.",
    "A second or more without a packet of a stream is a stretch without media, reconnecting included. Where "
    "there was one, the table is followed by how many there were and how long they lasted."};

struct PlaySettings {
    ServerSettings server;
    ReceptionSettings reception;
};

} // namespace

Command PlayCommand() {
    const auto settings = std::make_shared<PlaySettings>();
    ServerSettings &server = settings->server;
    return {.name = "play",
            .summary = "receive the streams of a server and show how they arrive",
            .examples = kExamples,
            .notes = kNotes,
            .argument = UrlArgument(server),
            .groups = {DurationOptions(settings->reception.duration, kUntilInterrupted),
                       FigureOptions(settings->reception), ServerOptions(server), WaitingOptions(server),
                       StayingOptions(server, false)},
            .run = [settings](const LibraryOutput &output, Interruption &interruption) {
                return Play(settings->server, settings->reception, output, interruption);
            }};
}

} // namespace tool
