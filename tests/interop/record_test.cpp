// Recordings, captures and pictures of the tool, judged by other programs: ffprobe, ffmpeg and tshark.
#include "tests/interop/peers.h"
#include "tests/support/texts.h"

#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <sstream>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

int FramesIn(const std::string &stream) { return std::atoi(stream.c_str() + stream.rfind(' ') + 1); }

// Every frame can be decoded. The streams with their frames, like "h264 640 99" and "pcm_mulaw 38".
std::vector<std::string> ExpectStreams(const std::string &file, const std::string &expected) {
    EXPECT_EQ("", RunToEnd("ffmpeg -nostdin -v error -xerror -i " + file + " -f null - || echo failed >&2").errors)
        << file;
    const Result probe =
        RunToEnd("ffprobe -v error -count_frames -show_entries stream=codec_name,width,nb_read_frames "
                 "-of 'compact=nk=1:p=0:s=\\ ' " +
                 file + " | awk 'NF && !seen[$0]++'");
    std::vector<std::string> streams;
    std::string names;
    std::istringstream lines(probe.output);
    for (std::string line; std::getline(lines, line);) {
        streams.push_back(line);
        names += (names.empty() ? "" : ", ") + line.substr(0, line.rfind(' '));
    }
    EXPECT_EQ(expected, names) << file << probe.errors;
    return streams;
}

class Record : public testing::Test {
protected:
    Record() {
        char name[] = "/tmp/rtsptap-record-XXXXXX";
        directory = std::string(mkdtemp(name)) + "/";
    }
    ~Record() override { std::filesystem::remove_all(directory); }

    GstServer server;
    std::string directory;
};

TEST_F(Record, EveryFormatDecodesWithoutErrors) {
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"record", "a.mp4", "auto", "h264 640, aac"}, {"record", "a.mkv", "tcp", "h264 640, pcm_mulaw"},
        {"record", "a.ts", "auto", "h264 640, aac"},  {"record", "a.h264", "udp", "h264 640"},
        {"record", "a.wav", "auto", "pcm_mulaw"},     {"snapshot", "a.jpg", "tcp", "mjpeg 640"},
    };
    for (const auto &[command, name, transport, wanted] : cases) {
        const std::string file = directory + name;
        const Result tool = RunToEnd(TOOL " " + command + " " + server.Url() + " -o " + file + " -t " + transport +
                                     (command == "record" ? " --duration 3s" : ""));
        EXPECT_EQ(0, tool.status) << file << ": " << tool.errors;
        const std::vector<std::string> streams = ExpectStreams(file, wanted);
        EXPECT_TRUE(streams[0] != "h264 640" || FramesIn(streams.at(0)) >= 15) << file;
    }
}

#ifdef CERTIFICATES
TEST_F(Record, WhatComesThroughTlsAndHttpDecodesWithoutErrors) {
    EXPECT_EQ(RunToEnd("sh " CERTIFICATES " " + directory).status, 0);
    const GstServer secure({"env", "TLS_CERTIFICATE=" + directory + "good.pem", GST_SERVER, GstServer::kUser,
                            GstServer::kPassword, "4"});
    for (const std::string scheme : {"rtsps", "rtsph", "rtspsh"}) {
        const std::string url = scheme + (scheme == "rtsph" ? server : secure).Url().substr(4);
        const std::string command = TOOL " record " + url + " --force --duration 3s -o " + directory + "a.mkv";
        const Result tool = RunToEnd(command + " --ca-file " + directory + "root.pem");
        EXPECT_EQ(0, tool.status) << scheme << ": " << tool.errors;
        EXPECT_GE(FramesIn(ExpectStreams(directory + "a.mkv", "h264 640, pcm_mulaw").at(0)), 15) << scheme;
        if (scheme == "rtsph") continue;
        const Result refused = RunToEnd(command);
        EXPECT_EQ(3, refused.status) << scheme;
        EXPECT_TRUE(Contains(refused.errors, "certificate is refused: ")) << refused.errors;
    }
}
#endif

#ifdef WITH_SRTP
TEST_F(Record, WhatIsProtectedDecodesWithoutErrors) {
    const GstServer secure({"env", "PROTECTED=1", GST_SERVER, GstServer::kUser, GstServer::kPassword, "30"});
    for (const std::string transport : {"tcp", "udp"}) {
        const std::string file = directory + transport + ".mkv";
        const Result tool =
            RunToEnd(TOOL " record " + secure.Url() + " --duration 3s -o " + file + " -t " + transport);
        EXPECT_EQ(0, tool.status) << transport << ": " << tool.errors;
        EXPECT_GE(FramesIn(ExpectStreams(file, "h264 640, pcm_mulaw").at(0)), 15) << transport;
    }
    const Result probe = RunToEnd(TOOL " probe --explain -v " + secure.Url());
    EXPECT_TRUE(Contains(probe.output, "SRTP AES_CM_128_HMAC_SHA1_80")) << probe.output;
    EXPECT_FALSE(Contains(probe.output + probe.errors, "mikey ")) << probe.output << probe.errors;
}
#endif

TEST_F(Record, EveryCodecOfTodayDecodesWithoutErrors) {
    for (const auto &row : Rows("pipelines.txt")) {
        const GstServer peer({GST_SERVER, row[0]});
        const std::string url = " record rtsp://127.0.0.1:" + std::to_string(peer.Port()) +
                                "/demo --force --duration 3s -o " + directory;
        const Result tool = RunToEnd(TOOL + url + "a.mkv -t tcp && " TOOL + url + "a.mp4 -t udp");
        EXPECT_EQ(0, tool.status) << row[0] << tool.errors;
        EXPECT_GE(FramesIn(ExpectStreams(directory + "a.mkv", row.at(1)).at(0)), 6);
        EXPECT_GE(FramesIn(ExpectStreams(directory + "a.mp4", row.at(2)).at(0)), 6);
    }
}

TEST_F(Record, TwoStreamsWithOneCodecAreBothInTheFile) {
    const std::string picture = "videotestsrc is-live=true ! video/x-raw,height=120,framerate=25/1,width=";
    const std::string coding = " ! x264enc tune=zerolatency key-int-max=25 ! rtph264pay config-interval=1 name=pay";
    const GstServer peer({GST_SERVER, picture + "160" + coding + "0 " + picture + "320" + coding + "1"});
    const Result tool = RunToEnd(TOOL " record rtsp://127.0.0.1:" + std::to_string(peer.Port()) +
                                 "/demo --duration 3s -o " + directory + "a.mkv");
    EXPECT_EQ(0, tool.status) << tool.errors;
    ExpectStreams(directory + "a.mkv", "h264 160, h264 320");
}

// Three players at once, past the end of the clip; each begins with its first picture. GStreamer's may come to an
// end too late on a busy machine to find anybody to tell of it: then it plays once more.
TEST_F(Record, TheDemoServersClipArrivesPictureByPictureEverywhere) {
    ChildProcess demo({DEMO_SERVER, "--auth", "viewer:a-running-clock", "--seconds", "60"});
    std::string url = demo.ReadLine(10s);
    url.insert(url.find("//") + 2, "viewer:a-running-clock@");
    const std::string pictures = " -vsync passthrough -frames:v 150 -an -f md5 - ";
    const std::string clip = RunToEnd("cat " CLIP " " CLIP " | ffmpeg -v error -i -" + pictures).output;
    for (const std::string transport : {"udp", "tcp"}) {
        const std::string file = directory + transport + ".mkv";
        const std::string gstreamer = "gst-launch-1.0 -q rtspsrc protocols=" + transport + " location=" + url +
                                      " ! rtph264depay ! avdec_h264 ! fakesink num-buffers=100";
        const Result players =
            RunToEnd("ffmpeg -nostdin -v error -rtsp_transport " + transport + " -i " + url + pictures +
                     " & ffmpeg=$!; { " + gstreamer + " || " + gstreamer + "; } & gst=$!; " TOOL " record -q " +
                     url + " -o " + file + " -t " + transport + " --duration 7s && wait $gst && wait $ffmpeg");
        EXPECT_EQ(0, players.status) << players.errors;
        EXPECT_EQ(clip, players.output) << players.errors;
        EXPECT_GT(FramesIn(ExpectStreams(file, "h264 640, pcm_mulaw").at(0)), 150);
        EXPECT_EQ(clip, RunToEnd("ffmpeg -nostdin -v error -i " + file + pictures).output);
    }
}

// Pictures are sent late, which sender reports tell. In the clip a beep, two pieces of sound unlike those that come
// every five, begins with each key frame, once a second.
TEST_F(Record, WhatIsHeldBackIsPutWhereSenderReportsSay) {
    ChildProcess demo({DEMO_SERVER, "--video-late", "500", "--no-rtp-info", "--first-report", "1000"});
    const std::string record = TOOL " record " + demo.ReadLine(10s) + " --duration 5s -o " + directory;
    for (const std::string transport : {"udp", "tcp"}) {
        const std::string file = transport + ".mkv";
        const Result tool = RunToEnd(record + file + " -t " + transport);
        EXPECT_EQ(0, tool.status) << tool.errors;
        const Result apart = RunToEnd(
            "ffprobe -v error -show_entries packet=stream_index,pts_time,flags,data_hash -show_data_hash md5 "
            "-of csv=p=0 " +
            directory + file +
            " | awk -F, '$1 == 0 && /K/ {key = $2} $1 == 1 {time[n] = $2; hash[n++] = $NF} END {for (i = 5; "
            "i + 5 < n; i++) if (hash[i - 5] == hash[i + 5] && hash[i] != hash[i + 5]) break; d = key - "
            "time[i] + 10.5; print 1000 * (d - int(d) - .5)}'");
        EXPECT_NEAR(0, std::stod(apart.output), 9) << transport << apart.errors;
    }
}

TEST_F(Record, AnInterruptedRecordingInPartsPlaysAndMissesNoPicture) {
    const Result record = RunToEnd("timeout --preserve-status -s INT 6 " TOOL " record " + server.Url() + " -o " +
                                   directory + "part.mp4 --split 2s");
    EXPECT_EQ(128 + SIGINT, record.status) << record.errors;
    int frames = 0, files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        const std::string file = entry.path();
        EXPECT_TRUE(std::regex_match(file, std::regex(".*/part-00[1-4]\\.mp4"))) << file;
        frames += FramesIn(ExpectStreams(file, "h264 640, aac").at(0));
        ++files;
    }
    EXPECT_GE(files, 3);
    EXPECT_NEAR(140, frames, 30);
    const Result again =
        RunToEnd(TOOL " record " + server.Url() + " -o " + directory + "part.mp4 --split 2s --duration 1s");
    EXPECT_TRUE(
        Contains(again.errors, "recorded " + directory + "part-00" + std::to_string(files + 1) + ".mp4: 00:0"))
        << again.errors; // behind those of before
}

TEST_F(Record, ACaptureHoldsEveryPacket) {
    const std::string file = directory + "a.pcap";
    const Result tool = RunToEnd(TOOL " record " + server.Url() + " -o " + file + " --duration 5s");
    EXPECT_EQ(0, tool.status) << tool.errors;
    for (const auto &[payloadType, codec] : {std::pair{"96", "H264"}, {"0", "PCMU"}}) {
        std::smatch report;
        ASSERT_TRUE(std::regex_search(tool.errors, report, std::regex(std::string(codec) + " +([0-9]+)")));
        const Result count = RunToEnd("tshark -r " + file + " -Y rtp.p_type==" + payloadType + " | wc -l");
        EXPECT_NEAR(std::stod(report[1]), std::stod(count.output), 8);
        EXPECT_GE(std::stod(count.output), 50);
    }
    EXPECT_NE("", RunToEnd("tshark -r " + file + " -Y 'rtcp.pt==200'").output);
    EXPECT_EQ("", RunToEnd("tshark -r " + file + " -Y 'frame.time_delta<0'").output);
}

// Without RTSP, from plain senders; pictures that refer to later ones keep their times. AAC can be recorded only
// with what a description says of it.
TEST_F(Record, ListenRecordsWhatFfmpegAndGstreamerSend) {
    const auto port = [] { return std::to_string(UdpPeer().Port()); };
    for (const auto &row : Rows("listened.txt")) {
        const std::string file = directory + row.at(1);
        const std::string with = "' " + port() + " " + port() + " " + directory;
        ChildProcess sender({"bash", "-c", "exec bash -c 'exec " + row.at(2) + with});
        const Result listen = RunToEnd("TOOL=" TOOL " bash -c '" + row[0] + " --duration 6s -o " + file + with);
        EXPECT_EQ(0, listen.status) << listen.errors;
        ExpectStreams(file, row.at(3));
    }
    const Result times =
        RunToEnd("ffprobe -v error -show_entries frame=pts_time,pict_type -of csv=p=0 " + directory + "f.mp4");
    EXPECT_TRUE(Contains(times.output, "B")) << times.output;
    std::vector<double> shown;
    std::istringstream lines(times.output);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) shown.push_back(std::atof(line.c_str()));
    ASSERT_GT(shown.size(), 30U);
    // The last ones may have been cut off from those that are sent later and shown earlier.
    for (std::size_t index = 1; index + 8 < shown.size(); ++index)
        EXPECT_NEAR(0.04, shown[index] - shown[index - 1], 0.002) << index;
}

TEST_F(Record, WhatCannotBeWrittenEndsWithItsOwnStatus) {
    std::ofstream(directory + "kept.ts") << "kept";
    for (const auto &row : Rows("recordings.txt")) {
        std::istringstream words(row[0]);
        int status = 0;
        std::string arguments;
        std::getline(words >> status, arguments);
        arguments = std::regex_replace(arguments, std::regex("DEMO"), server.Url());
        const Result tool = RunToEnd("cd " + directory + "; " TOOL + arguments);
        EXPECT_EQ(status, tool.status) << row[0] << tool.errors;
        EXPECT_TRUE(Contains(tool.errors, row.at(1))) << row[0] << tool.errors;
    }
    EXPECT_EQ(4U, std::filesystem::file_size(directory + "kept.ts"));
    std::filesystem::remove(directory + "kept.ts");
    EXPECT_TRUE(std::filesystem::is_empty(directory)); // and leaves nothing behind
}

} // namespace
} // namespace rtsptap::test
