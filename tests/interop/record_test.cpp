// Recordings, captures and pictures of the tool, judged by other programs: ffprobe, ffmpeg and tshark.
#include "tests/interop/peers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
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

    std::string Url() const { return server.UrlWith("viewer:a-running-clock"); }
    Finished RunTool(const char *command, std::vector<std::string> more) const {
        more.insert(more.begin(), {TOOL, command, Url()});
        return RunToEnd(more);
    }

    DemoServer server;
    std::string directory;
};

TEST_F(Record, EveryFormatDecodesWithoutErrors) {
    const struct {
        const char *command, *file;
        std::vector<std::string> streams; // without their frames
    } cases[] = {
        {"record", "a.mp4", {"h264 640", "aac"}}, {"record", "a.mkv", {"h264 640", "pcm_mulaw"}},
        {"record", "a.ts", {"h264 640", "aac"}},  {"record", "a.h264", {"h264 640"}},
        {"record", "a.wav", {"pcm_mulaw"}},       {"snapshot", "a.jpg", {"mjpeg 640"}},
    };
    for (const auto &row : cases) {
        const std::string file = directory + row.file;
        const bool record = std::string(row.command) == "record";
        const Finished tool = RunTool(row.command, {"-o", file, record ? "--duration=3s" : "--transport=tcp"});
        EXPECT_EQ(0, tool.status) << row.file << ": " << tool.errors;
        EXPECT_EQ("", DecodingErrors(file)) << row.file;
        const std::vector<std::string> streams = StreamsOf(file);
        ASSERT_EQ(row.streams.size(), streams.size()) << row.file;
        for (std::size_t index = 0; index < streams.size(); ++index)
            EXPECT_EQ(row.streams[index], streams[index].substr(0, streams[index].rfind(' '))) << row.file;
        EXPECT_TRUE(row.streams[0] != "h264 640" || FramesIn(streams[0]) >= 45) << row.file;
    }
}

TEST_F(Record, AnInterruptedRecordingInPartsPlaysAndMissesNoPicture) {
    ChildProcess record({TOOL, "record", Url(), "-o", directory + "part.mp4", "--split", "2s"});
    std::this_thread::sleep_for(6s);
    record.Signal(SIGINT);
    EXPECT_EQ(128 + SIGINT, record.Wait(20s)) << record.Errors();
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
    EXPECT_NEAR(140, frames, 30);
}

TEST_F(Record, ACaptureHoldsEveryPacket) {
    const std::string file = directory + "a.pcap";
    const Finished tool = RunTool("record", {"-o", file, "--duration", "2s"});
    EXPECT_EQ(0, tool.status) << tool.errors;
    for (const auto &[payloadType, codec] : {std::pair{96, "H264"}, {0, "PCMU"}}) {
        std::smatch report;
        ASSERT_TRUE(std::regex_search(tool.errors, report, std::regex(std::string(codec) + " +([0-9]+)")));
        const Finished reader =
            RunToEnd({"tshark", "-r", file, "-d", "udp.port==5004,rtp", "-d", "udp.port==5006,rtp", "-Y",
                      "rtp.p_type==" + std::to_string(payloadType), "-T", "fields", "-e", "rtp.seq"});
        const auto packets = std::count(reader.output.begin(), reader.output.end(), '\n');
        EXPECT_NEAR(std::stod(report[1]), static_cast<double>(packets), 8);
        EXPECT_GE(packets, 50);
    }
}

TEST_F(Record, PicturesThatReferToLaterOnesKeepTheirTimes) {
    const std::string port = std::to_string(FreeUdpPort());
    const std::string file = directory + "b.mp4";
    ChildProcess listen({TOOL, "listen", "--video", "h264@" + port, "-o", file, "--duration", "6s"});
    ChildProcess sender(
        Shell("ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=320x240:rate=25 -pix_fmt yuv420p "
              "-c:v libx264 -bf 2 -g 25 -bsf:v dump_extra -f rtp rtp://127.0.0.1:" +
              port));
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
        {{TOOL, "record", nobody, "-o", directory + "no/such.mp4"}, 15, "No such file or directory"},
        {{TOOL, "record", nobody, "-o", directory + "a.avi"}, 1, "--format: mp4, mkv"},
        {{TOOL, "record", Url(), "-o", "/dev/full", "--format", "mkv"}, 15, "No space left"},
        {{TOOL, "record", Url(), "-o", directory + "a.mjpeg"}, 11, "mjpeg holds none of the streams"},
        {{TOOL, "snapshot", Url(), "-o", "/dev/full", "--format", "png"}, 15, "No space left"},
    };
    for (const auto &row : cases) {
        const Finished tool = RunToEnd(row.arguments);
        EXPECT_EQ(row.status, tool.status) << tool.errors;
        EXPECT_NE(std::string::npos, tool.errors.find(row.errors)) << tool.errors;
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory)); // and leaves nothing behind
}

} // namespace
} // namespace rtsptap::test
