#include "cli/manual.h"

#include "base/text.h"

#include <cctype>

namespace tool {
std::vector<std::string> NamesOf(const Option &option) { return Split(option.names, ','); }

std::vector<std::string> ChoicesOf(const std::string &value) {
    return value.find('|') == std::string::npos ? std::vector<std::string>() : Split(value, '|');
}

std::vector<std::string> CompletionsOf(const Option &option) {
    return option.words.empty() ? ChoicesOf(option.value) : option.words;
}

std::string Spelled(const std::string &name, const std::string &value) {
    return value.empty() || value[0] == '[' ? name + value : name + " " + value;
}

std::string Sentence(const std::string &summary, const char *end) {
    std::string sentence = summary + end;
    sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
    return sentence;
}

std::string SynopsisOf(const Command &command) {
    return "rtsptap " + command.text.name + (command.groups.empty() ? "" : " [OPTIONS]") +
           (command.argument.name.empty() ? "" : " " + command.argument.name);
}

std::vector<std::string> CommandNames(const Manual &manual) {
    std::vector<std::string> names;
    for (const Command &command : manual.commands) names.push_back(command.text.name);
    return names;
}

const std::vector<CommandText> &CommandTexts() {
    static const std::vector<CommandText> kTexts = {
        {"probe",
         "show what a server offers, and how fast it answers",
         {{"rtsptap probe rtsp://camera.local/live", "streams, server, and the time of every step"},
          {"rtsptap probe rtsp://camera.local/live --json | jq .streams", "the same for programs"}},
         {"Connects, plays until every stream has brought a packet and every video stream a key frame, and tears "
          "the session down. When no packet comes, what is known is shown all the same."}},
        {"play",
         "receive the streams of a server and show how they arrive",
         {{"rtsptap play rtsp://camera.local/live", "until Ctrl-C"},
          {"rtsptap play rtsp://camera.local/live -u admin -t tcp --duration 10s",
           "inside the RTSP connection; asks for the password"},
          {"rtsptap play rtsp://camera.local/live --duration 1m --max-loss 1 --min-rate 500k --expect-codec h264",
           "a health check: status 14 when a limit is not kept"},
          {"rtsptap play rtsp://camera.local/live --stats-json - --quiet | jq .", "figures once a second"}},
         {"On a terminal one line per stream is redrawn up to four times a second; elsewhere, and with --verbose, "
          "one follows for each stream every ten seconds. At the end a table is written to standard output, or to "
          "standard error where that takes the figures.",
          "Jitter and loss are those of RFC 3550, counted from the packets received; a duplicate makes up for no "
          "loss. The jitter of the table is the average.",
          "Each line of --stats-json is an object with type, schema, time, elapsed_s, state and streams. The type "
          "is interval, with the figures of the last second and those of all, and summary in the last line. "
          "Unknown figures are null. The file json.md of the documentation says what every field is, and its unit.",
          "A second or more without a packet of a stream is a stretch without media, reconnecting included. Where "
          "there was one, the table is followed by how many there were and how long they lasted."}},
        {"record",
         "write the streams of a server to a file",
         {{"rtsptap record rtsp://camera.local/live -o walk.mp4 --duration 10m", "picture and sound"},
          {"rtsptap record rtsp://camera.local/live -o day.mkv --split 1h --reconnect",
           "a file an hour, day-001.mkv and so on"},
          {"rtsptap record rtsp://camera.local/live -o live.pcap", "the packets as they came, for Wireshark"},
          {"rtsptap record rtsp://camera.local/live -o - --format ts | mpv -", "into another program"}},
         {"Containers (mp4, mkv, ts) hold all streams; h264, aac, wav and mjpeg the first that fits; pcap and "
          "rtpdump the packets as they came. Pictures are never encoded anew; sound is, where the container does "
          "not hold its codec. A file begins with a key frame and plays after Ctrl-C; a transport stream (mp2t) is "
          "written as it comes.",
          "Over UDP packets are put in order: a late one is waited for as long as --latency says, and later ones "
          "are counted. Captures have packets as they come, with RTCP, and a first one that describes them. "
          "Picture and sound are aligned as the server says "
          "(RTP-Info), by arrival where it says nothing."}},
        {"snapshot",
         "write the first picture of a server to a file",
         {{"rtsptap snapshot rtsp://camera.local/live -o now.jpg", ""},
          {"rtsptap snapshot rtsp://camera.local/live -o - --format png > now.png", ""}},
         {}},
        {"listen",
         "receive RTP on local ports, without RTSP",
         {{"rtsptap listen --video h264@5004 --audio pcmu@5006", ""},
          {"rtsptap listen --sdp stream.sdp -o talk.mkv --duration 5m", "codecs and ports of a description"}},
         {"AAC and H.264 without parameter sets in the stream need the parameters of a description to be recorded: "
          "--sdp. Multicast groups that it names are joined; its other addresses are passed over, since packets "
          "are "
          "taken on every local one."}},
        {"report",
         "receive for a while and write an HTML page about it",
         {{"rtsptap report rtsp://camera.local/live --duration 60s -o report.html", ""}},
         {"One file without scripts: what probe shows, a list of what disturbed the reception, and bit rate, loss, "
          "jitter, distance of packets and queue length of every stream as plots."}},
        {"demo",
         "play the bundled demo server",
         {{"rtsptap demo", "a test picture and a tone, five seconds over UDP"},
          {"rtsptap demo --tcp --auth", "inside the RTSP connection, with a password"}},
         {"The server, rtsptap_demo_server, is looked for beside rtsptap and in PATH. It carries its clip, listens "
          "on "
          "127.0.0.1 and ends with the command."}},
        {"completion",
         "print the completion of a shell",
         {{"source <(rtsptap completion bash)", "for this shell; packages install it for all"}},
         {}},
    };
    return kTexts;
}

const std::vector<std::string> &ProgramNotes() {
    static const std::vector<std::string> kNotes = {
        "rtsptap connects to cameras and media servers, receives their streams over UDP, multicast or inside the "
        "RTSP connection, and shows, measures or records them. A URL is rtsp://[USER[:PASSWORD]@]HOST[:PORT]/PATH; "
        "% and two hexadecimal digits stand for a character in user name and password.",
        "Standard output carries data only; everything else goes to standard error.",
        "Times are numbers with ms, s, m or h, as 1m30s, and seconds without; 00:01:30 is one, too. A password is "
        "never shown, also not with "
        "--verbose.",
        "The first Ctrl-C, SIGTERM or SIGHUP ends the session at the server and completes files; a second one ends "
        "at once.",
    };
    return kNotes;
}

const std::vector<Variable> &EnvironmentVariables() {
    static const std::vector<Variable> kVariables = {
        {"RTSPTAP_PASSWORD", "The password, where neither the URL nor --password-file has one."},
        {"NO_COLOR", "When set and not empty, no colors, as with --no-color."},
    };
    return kVariables;
}

} // namespace tool
