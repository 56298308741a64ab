// Where a command writes to and in which format: chosen by name, and tried before anything is connected.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// What is written; a bit each, so that a table can name several.
enum FileFormat : unsigned {
    kMp4 = 1,
    kMkv = 2,
    kTs = 4,
    kH264 = 8,
    kAac = 16,
    kWav = 32,
    kMjpeg = 64,
    kPcap = 128,
    kRtpdump = 256,
    kPng = 512,
    kJpg = 1024
};
constexpr unsigned kContainers = kMp4 | kMkv | kTs; // hold several streams, and can be split
constexpr unsigned kRecordings = kContainers | kH264 | kAac | kWav | kMjpeg | kPcap | kRtpdump;
constexpr unsigned kPictures = kPng | kJpg;

constexpr auto kUsualLatency = std::chrono::milliseconds(200);

struct OutputSettings {
    std::string file;                   // "-": standard output; empty: none
    std::string format;                 // empty: by the file's extension
    std::chrono::milliseconds split{0}; // 0: one file
    bool force = false;                 // a file that exists is overwritten
    bool noClobber = false;             // and nobody is asked
};

// What a sink has written: the files that it has begun, in their order. Any thread.
class WrittenFiles {
public:
    void Add(const std::string &path) {
        const std::lock_guard guard(lock_);
        paths_.push_back(path);
    }
    void Clear() { // they are of no use
        const std::lock_guard guard(lock_);
        paths_.clear();
    }
    void SetDuration(std::chrono::nanoseconds duration) {
        const std::lock_guard guard(lock_);
        duration_ = duration;
    }
    std::vector<std::string> Paths() const {
        const std::lock_guard guard(lock_);
        return paths_;
    }
    std::optional<std::chrono::nanoseconds> Duration() const { // of the media in them; none when it is not known
        const std::lock_guard guard(lock_);
        return duration_;
    }

private:
    mutable std::mutex lock_; // guards the fields below
    std::vector<std::string> paths_;
    std::optional<std::chrono::nanoseconds> duration_;
};

struct OutputFile {
    FileFormat format = kMp4;
    std::string name;                   // as it was given, for messages
    std::string path;                   // empty: standard output; of split files the pattern of their names
    FILE *standardOutput = nullptr;     // the real one
    std::chrono::milliseconds split{0}; // 0: one file
    std::shared_ptr<WrittenFiles> written = std::make_shared<WrittenFiles>();
    std::chrono::milliseconds latency = kUsualLatency; // what packets over UDP are waited for to be put in order
};

// Reads the settings and makes sure that the file can be written and may be; the tools that the format needs must
// be built in. Parts of a split recording never overwrite anything.
Outcome ChooseOutput(const OutputSettings &settings, unsigned allowed, FILE *standardOutput,
                     Interruption &interruption, OutputFile &file);

std::string FormatNames(unsigned formats); // "mp4, mkv, ..."

} // namespace tool
