// Recordings, captures and pictures of the tool, judged by other programs: ffprobe, ffmpeg and tshark.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace rtsptap::test {
namespace {

using namespace std::chrono_literals;

struct Finished {
    int status = -1;
    std::string output;
    std::string errors;
};

Finished RunToEnd(const std::vector<std::string> &arguments, std::chrono::seconds limit = 60s) {
    ChildProcess process(arguments);
    const int status = process.Wait(limit);
    return {status, process.Output(), process.Errors()};
}

// "h264 640x360 99" and "aac 38": each stream with the frames that could be decoded.
std::vector<std::string> StreamsOf(const std::string &file) {
    const Finished probe =
        RunToEnd({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                  "stream=codec_name,width,nb_read_frames", "-of", "compact=nk=1:p=0:s=\\ ", file});
    EXPECT_EQ("", probe.errors);
    std::vector<std::string> streams;
    std::istringstream lines(probe.output);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && std::find(streams.begin(), streams.end(), line) == streams.end())
            streams.push_back(line);
    return streams;
}

int FramesIn(const std::string &stream) { return std::atoi(stream.c_str() + stream.rfind(' ') + 1); }

std::string DecodingErrors(const std::string &file) {
    const Finished decoder =
        RunToEnd({"ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", file, "-f", "null", "-"});
    return decoder.status == 0 ? decoder.errors : "ffmpeg ended: " + decoder.errors;
}

class Record : public testing::Test {
protected:
    Record() {
        char name[] = "/tmp/rtsptap-record-XXXXXX";
        directory = std::string(mkdtemp(name)) + "/";
    }
    ~Record() override { std::filesystem::remove_all(directory); }

    std::string Url() const { return std::string(server.Url()).replace(0, 7, "rtsp://viewer:a-running-clock@"); }
    Finished RunTool(const char *command, std::vector<std::string> more) const {
        more.insert(more.begin(), {TOOL, command, Url()});
        return RunToEnd(more);
    }

    DemoServer server;
    std::string directory;
};

TEST_F(Record, EveryFormatDecodesWithoutErrors) {
    const struct {
        const char *file;
        const char *transport;
        std::vector<std::string> streams; // without their frames
    } cases[] = {
        {"a.mp4", "udp", {"h264 640", "aac"}}, {"a.mkv", "tcp", {"h264 640", "pcm_mulaw"}},
        {"a.ts", "tcp", {"h264 640", "aac"}},  {"a.h264", "udp", {"h264 640"}},
        {"a.wav", "tcp", {"pcm_mulaw"}},       {"a.aac", "tcp", {"aac"}},
    };
    for (const auto &row : cases) {
        const std::string file = directory + row.file;
        const Finished tool = RunTool("record", {"-o", file, "-t", row.transport, "--duration", "3s"});
        EXPECT_EQ(0, tool.status) << row.file << ": " << tool.errors;
        EXPECT_EQ("", tool.output);
        EXPECT_EQ("", DecodingErrors(file)) << row.file;
        const std::vector<std::string> streams = StreamsOf(file);
        ASSERT_EQ(row.streams.size(), streams.size()) << row.file;
        for (std::size_t index = 0; index < streams.size(); ++index) {
            EXPECT_EQ(row.streams[index], streams[index].substr(0, streams[index].rfind(' '))) << row.file;
            if (row.streams[index] != "h264 640") continue;
            EXPECT_NEAR(75, FramesIn(streams[index]), 30) << row.file;
        }
    }
}

TEST_F(Record, AnInterruptedRecordingPlays) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string file = directory + "cut.mp4";
        ChildProcess record({TOOL, "record", Url(), "-o", file});
        std::this_thread::sleep_for(4s);
        record.Signal(signal);
        EXPECT_EQ(128 + signal, record.Wait(20s)) << record.Errors();
        EXPECT_EQ("", DecodingErrors(file));
        const std::vector<std::string> streams = StreamsOf(file);
        ASSERT_EQ(2U, streams.size());
        EXPECT_GE(FramesIn(streams[0]), 25);
    }
}

TEST_F(Record, SplitFilesEachBeginWithAKeyFrameAndMissNone) {
    const Finished tool = RunTool("record", {"-o", directory + "part.mp4", "--split", "2s", "--duration", "5s"});
    EXPECT_EQ(0, tool.status) << tool.errors;
    int frames = 0;
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        const std::string file = entry.path();
        EXPECT_TRUE(std::regex_match(file, std::regex(".*/part-00[1-4]\\.mp4"))) << file;
        EXPECT_EQ("", DecodingErrors(file)) << file;
        frames += FramesIn(StreamsOf(file).at(0));
        ++files;
    }
    EXPECT_GE(files, 3);
    EXPECT_NEAR(125, frames, 30);
}

// Packets of a payload type, as tshark finds them in a capture.
int PacketsInCapture(const std::string &file, int payloadType) {
    const Finished reader =
        RunToEnd({"tshark", "-r", file, "-d", "udp.port==5004,rtp", "-d", "udp.port==5006,rtp", "-Y",
                  "rtp.p_type==" + std::to_string(payloadType), "-T", "fields", "-e", "rtp.seq"});
    return static_cast<int>(std::count(reader.output.begin(), reader.output.end(), '\n'));
}

// The same in the format of rtptools: a line, 16 bytes, then records that begin with their length.
int PacketsInDump(const std::string &file, int payloadType) {
    std::ifstream in(file, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(0U, bytes.find("#!rtpplay1.0 127.0.0.1/5004\n"));
    const auto byte = [&bytes](std::size_t at) { return static_cast<uint8_t>(bytes[at]); };
    int count = 0;
    std::size_t at = bytes.find('\n') + 1 + 16;
    while (at + 10 <= bytes.size()) {
        const int length = byte(at) << 8 | byte(at + 1);
        EXPECT_EQ(length, (byte(at + 2) << 8 | byte(at + 3)) + 8);
        EXPECT_EQ(0x80, byte(at + 8)); // RTP of version 2, without more ado
        count += (byte(at + 9) & 0x7F) == payloadType;
        at += static_cast<std::size_t>(std::max(length, 8));
    }
    EXPECT_EQ(bytes.size(), at);
    return count;
}

TEST_F(Record, CapturesHoldEveryPacket) {
    for (const auto &[name, count] : {std::pair{"a.pcap", &PacketsInCapture}, {"a.rtpdump", &PacketsInDump}}) {
        const std::string file = directory + name;
        const Finished tool = RunTool("record", {"-o", file, "--duration", "2s"});
        EXPECT_EQ(0, tool.status) << tool.errors;
        for (const auto &[payloadType, codec] : {std::pair{96, "H264"}, {0, "PCMU"}}) {
            std::smatch report;
            ASSERT_TRUE(std::regex_search(tool.errors, report, std::regex(std::string(codec) + " +([0-9]+)")));
            const int packets = count(file, payloadType);
            EXPECT_NEAR(std::stod(report[1]), packets, 8) << name;
            EXPECT_GE(packets, 50) << name;
        }
    }
}

TEST_F(Record, ASnapshotIsAPictureOfTheStream) {
    for (const auto &[name, codec] : {std::pair{"now.png", "png 640 1"}, std::pair{"now.jpg", "mjpeg 640 1"}}) {
        const Finished tool = RunTool("snapshot", {"-o", directory + name});
        EXPECT_EQ(0, tool.status) << tool.errors;
        EXPECT_EQ(std::vector<std::string>{codec}, StreamsOf(directory + name));
        EXPECT_EQ("", DecodingErrors(directory + name));
    }
}

TEST_F(Record, PicturesThatReferToLaterOnesKeepTheirTimes) {
    const std::string port = std::to_string(FreeUdpPort());
    const std::string file = directory + "b.mp4";
    ChildProcess listen({TOOL, "listen", "--video", "h264@" + port, "-o", file, "--duration", "6s"});
    ChildProcess sender({"ffmpeg",
                         "-nostdin",
                         "-v",
                         "error",
                         "-re",
                         "-f",
                         "lavfi",
                         "-i",
                         "testsrc2=size=320x240:rate=25",
                         "-pix_fmt",
                         "yuv420p",
                         "-c:v",
                         "libx264",
                         "-bf",
                         "2",
                         "-g",
                         "25",
                         "-bsf:v",
                         "dump_extra",
                         "-f",
                         "rtp",
                         "rtp://127.0.0.1:" + port});
    EXPECT_EQ(0, listen.Wait(20s)) << listen.Errors();
    EXPECT_EQ("", DecodingErrors(file));
    const Finished times =
        RunToEnd({"ffprobe", "-v", "error", "-show_entries", "frame=pts_time,pict_type", "-of", "csv=p=0", file});
    EXPECT_NE(std::string::npos, times.output.find('B')) << times.output;
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
    const std::string nobody = "rtsp://127.0.0.1:1/demo"; // a bad output is found out before connecting
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char *errors;
    } cases[] = {
        {{"record", nobody, "-o", directory + "no/such.mp4"}, 15, "No such file or directory"},
        {{"record", nobody, "-o", directory + "a.avi"}, 1, "--format: mp4, mkv"},
        {{"record", nobody, "-o", directory + "a.wav", "--split", "1m"}, 1, "--split works with mp4, mkv, ts"},
        {{"record", nobody, "-o", directory + "a.mp4"}, 3, "connection refused"},
        {{"record", Url(), "-o", "/dev/full", "--format", "mkv"}, 15, "No space left"},
        {{"record", Url(), "-o", "/dev/full", "--format", "pcap"}, 15, "No space left"},
        {{"record", Url(), "-o", directory + "a.mjpeg"}, 11, "mjpeg holds none of the streams"},
        {{"snapshot", Url(), "-o", "/dev/full", "--format", "png"}, 15, "No space left"},
    };
    for (const auto &row : cases) {
        std::vector<std::string> arguments = {TOOL};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Finished tool = RunToEnd(arguments);
        EXPECT_EQ(row.status, tool.status) << tool.errors;
        EXPECT_NE(std::string::npos, tool.errors.find(row.errors)) << tool.errors;
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory)); // and leaves nothing behind
}

} // namespace
} // namespace rtsptap::test
