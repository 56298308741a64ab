// What users meet before and beside a session: probe, descriptions from files, usage errors, help.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace rtsptap::test {
namespace {

using nlohmann::json;

TEST(CommandLine, ProbeTellsStreamsServerAndTimes) {
    const GstServer server;
    const Result probe = RunToEnd(TOOL " probe --json " + server.Url());
    ASSERT_EQ(0, probe.status) << probe.errors;
    EXPECT_FALSE(Contains(probe.output + probe.errors, "running")) << probe.output;
    const json found = json::parse(probe.output);
    std::string phases;
    for (const json &row : found["phases"])
        phases += row["phase"].get<std::string>() + (row["ms"] >= 0 ? "," : "!");
    EXPECT_EQ("resolve,connect,OPTIONS,DESCRIBE,SETUP 1,SETUP 2,PLAY,first packet,first key frame,", phases);
    const json expected =
        json::parse(R"({"schema": 1, "server": {"authentication": "Digest", "session_timeout_s": 4},
        "streams": [{"codec": "H264", "clock_hz": 90000, "control": "stream=0", "received": true,
                     "picture": {"width": 640, "height": 360, "profile": "Constrained Baseline", "level": "3.0"}},
                    {"codec": "PCMU", "media": "audio", "payload_type": 0, "first_key_frame_ms": null}]})")
            .flatten();
    for (const auto &[path, value] : expected.items())
        EXPECT_EQ(value, found.value(json::json_pointer(path), json("none"))) << path;
    EXPECT_TRUE(found["streams"][1]["first_packet_ms"].is_number()) << probe.output;
}

// AAC can be recorded only with what the description says of it.
TEST(CommandLine, ListenTakesCodecsAndPortsFromADescription) {
    const std::string base = testing::TempDir() + "listen" + std::to_string(getpid());
    const auto port = [] { return " -f rtp rtp://127.0.0.1:" + std::to_string(FreeUdpPort()); };
    ChildProcess sender(Shell(
        "ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine=sample_rate=44100 "
        "-map 0 -c:v libx264 -preset ultrafast -tune zerolatency -g 10" +
        port() + " -map 1 -c:a aac" + port() + " -sdp_file " + base + ".sdp"));
    RunToEnd("until [ -s " + base + ".sdp ]; do sleep .05; done");
    const Result listen = RunToEnd(TOOL " listen --sdp " + base + ".sdp -o " + base + ".mkv --duration 3s");
    EXPECT_EQ(0, listen.status) << listen.errors;
    const std::string probe = "ffprobe -v error -of csv=p=0 -show_entries stream=codec_name,width ";
    EXPECT_EQ("h264,320\naac\n", RunToEnd(probe + base + ".mkv").output) << listen.errors;
    RunToEnd("rm " + base + ".*");
}

TEST(CommandLine, TheDemoServerAnswersWhateverIsAsked) {
    ChildProcess demo({DEMO_SERVER, "--udp-only", "--seconds", "60"});
    const std::string url = demo.ReadLine(std::chrono::seconds(10));
    const auto request = [&url](const std::string &line, const std::string &path, const std::string &headers) {
        return line + " " + url + path + " RTSP/1.0\\r\\nCSeq: 1\\r\\n" + headers + "\\r\\n";
    };
    const std::string udp = "Transport: RTP/AVP;unicast;client_port=2-3\\r\\n";
    const std::string all = // at once; the last can be no request, and ends the connection
        request("DESCRIBE", "x", "") + request("RECORD", "", "") + request("FETCH", "", "") +
        request("SETUP", "", udp) + request("SETUP", "/stream=1", "") +
        request("SETUP", "/stream=0", "Transport: RTP/AVP/TCP;interleaved=0-1\\r\\n") + "$\\0\\0\\4RTSP" +
        request("SETUP", "/stream=0", udp) + request("SETUP", "/stream=1", udp) +
        request("PLAY", "", "Session: 7\\r\\n") + request("DESCRIBE", "", "Require: x\\r\\n") +
        "OPTIONS * RTSP/2.0\\nCSeq: 1\\n\\nRTSP\\r\\n\\r\\n" + request("OPTIONS", "", "");
    const std::string port = url.substr(17, url.rfind('/') - 17);
    EXPECT_EQ("404 405 501 459 400 461 200 455 454 551 505 400 ",
              RunToEnd("exec 3<>/dev/tcp/127.0.0.1/" + port + "; printf '" + all +
                       "' >&3; sed -n 's|^RTSP/1.0 \\(...\\).*|\\1|p' <&3 | tr '\\n' ' '")
                  .output);
}

TEST(CommandLine, ThePageAndTheCompletionsCanBeRead) {
    for (const char *program : {TOOL, DEMO_SERVER, RELAY})
        EXPECT_EQ("", RunToEnd(program + std::string(" --man | groff -man -ww -z 2>&1")).output);
    const struct {
        const char *words;
        const char *offered;
    } cases[] = {{"play -t ''", "auto udp tcp multicast\n"},
                 {"snapshot --format ''", "png jpg\n"},
                 {"record --format m", "mp4 mkv mjpeg\n"},
                 {"play --expect-codec g", "g726\n"},
                 {"listen --video h", "h264@\n"}};
    for (const auto &row : cases)
        EXPECT_EQ(row.offered, RunToEnd(std::string("source <(" TOOL " completion bash); COMP_CWORD=3; COMP_WORDS=("
                                                    "rtsptap ") +
                                        row.words + "); _rtsptap; echo ${COMPREPLY[*]}")
                                   .output);
}

// "streams[].total.bytes": every path that leads to a value.
void CollectFields(const json &value, const std::string &path, std::set<std::string> &fields) {
    if (!value.is_structured()) {
        fields.insert(path);
        return; // it counts as an item of its own
    }
    for (const auto &[name, part] : value.items())
        CollectFields(part, value.is_array() ? path + "[]" : path + (path.empty() ? "" : ".") + name, fields);
}

TEST(CommandLine, EveryFieldOfTheJsonIsDocumented) {
    const GstServer server;
    const std::string stats = " play --stats-json - --duration 1500ms -q -t tcp " + server.Url();
    const struct {
        std::string section, command;
    } cases[] = {{"probe", " probe --json " + server.Url()},
                 {"interval", stats + " | head -n 1"},
                 {"summary", stats + " | tail -n 1"}};
    for (const auto &[section, command] : cases) {
        const Result tool = RunToEnd(TOOL + command);
        EXPECT_EQ("", tool.errors) << "also where nobody reads on";
        std::set<std::string> fields;
        CollectFields(json::parse(tool.output), "", fields);
        std::string written;
        for (const std::string &field : fields) written += field + "\n";
        EXPECT_EQ(RunToEnd("sed -n '/^## " + section +
                           "/,/^## /s/^| `\\([^`]*\\)`.*/\\1/p' " DOCUMENTATION "/json.md | LC_ALL=C sort")
                      .output,
                  written)
            << section;
    }
}

} // namespace
} // namespace rtsptap::test
