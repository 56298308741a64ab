// Where a command writes to and in which format: chosen by name, and tried before anything is connected; and the
// sinks that write there.
#pragma once

#include "base/codecs.h"
#include "base/interruption.h"
#include "base/outcome.h"
#include "reception/receive.h"
#include "session/description.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tool {

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

// The next part of a split recording, "walk-004.mp4" behind the highest number there is. A pattern with a time, as
// strftime has them ("%Y%m%d-%H%M%S"), is a name without number, as long as there is no such file.
std::string NextPart(const std::string &pattern);

// For a sink that writes the file itself. Standard output is a stream of its own then: closing it leaves the real
// one open.
Outcome OpenForWriting(const OutputFile &file, FILE *&opened);

// The sink for a format and the streams that it has room for; the others are named on standard error.
Outcome MakeSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                 std::unique_ptr<PacketSink> &sink);

// One sink each, of a file of its own; only in builds that have what they need.
Outcome MakePcapSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                     std::unique_ptr<PacketSink> &sink);
Outcome MakeRtpdumpSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink);
Outcome MakeRecordingSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                          std::unique_ptr<PacketSink> &sink);
Outcome MakePictureSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink);

} // namespace tool
