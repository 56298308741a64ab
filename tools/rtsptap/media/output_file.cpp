#include "media/output_file.h"

#include "base/text.h"
#include "base/writing.h"

#include <cerrno>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

struct FormatName {
    const char *name; // also the extension
    FileFormat format;
};

constexpr FormatName kNames[] = {
    {"mp4", kMp4},     {"mkv", kMkv},   {"ts", kTs},           {"h264", kH264}, {"aac", kAac}, {"wav", kWav},
    {"mjpeg", kMjpeg}, {"pcap", kPcap}, {"rtpdump", kRtpdump}, {"png", kPng},   {"jpg", kJpg}, {"jpeg", kJpg},
};

constexpr unsigned kNeedsLibpcap = kPcap;
constexpr unsigned kNeedsNothing = kRtpdump;

#ifdef RTSPTAP_WITH_GSTREAMER
constexpr bool kHasGstreamer = true;
#else
constexpr bool kHasGstreamer = false;
#endif
#ifdef RTSPTAP_WITH_LIBPCAP
constexpr bool kHasLibpcap = true;
#else
constexpr bool kHasLibpcap = false;
#endif

std::string NameOfFormat(const OutputSettings &settings) {
    if (!settings.format.empty()) return settings.format;
    const std::size_t dot = settings.file.rfind('.');
    return dot == std::string::npos ? "" : settings.file.substr(dot + 1);
}

Outcome CheckBuiltIn(FileFormat format) {
    const bool needsGstreamer = (format & (kNeedsLibpcap | kNeedsNothing)) == 0;
    if (needsGstreamer && !kHasGstreamer)
        return {ExitCode::kOutputFailed, "this rtsptap was built without GStreamer, which writes " +
                                             FormatNames(format) + "; it writes " +
                                             FormatNames(kNeedsNothing | (kHasLibpcap ? kNeedsLibpcap : 0U))};
    if ((format & kNeedsLibpcap) != 0 && !kHasLibpcap)
        return {ExitCode::kOutputFailed,
                "this rtsptap was built without libpcap, which writes pcap; rtpdump needs nothing"};
    return {};
}

bool IsPipeOrDevice(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// Leaves a file that exists as it is, and none where there was none. A pipe is not opened: its reader would see it
// end.
Outcome TryToWrite(const std::string &path) {
    bool writable = false;
    if (IsPipeOrDevice(path)) {
        writable = access(path.c_str(), W_OK) == 0;
    } else if (const int made = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); made >= 0) {
        writable = unlink(path.c_str()) == 0 && close(made) == 0;
    } else if (errno == EEXIST) {
        const int found = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        writable = found >= 0 && close(found) == 0;
    }
    return writable ? Outcome{} : WriteFailure(path, errno);
}

// "walk.mp4" becomes "walk-%03d.mp4"; a "%" of the name itself is doubled.
std::string PatternOf(const std::string &path) {
    std::string pattern;
    for (const char letter : path) pattern += letter == '%' ? std::string("%%") : std::string(1, letter);
    const std::size_t slash = pattern.rfind('/');
    const std::size_t dot = pattern.rfind('.');
    const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return pattern.insert(hasExtension ? dot : pattern.size(), "-%03d");
}

Outcome ChoosePath(const OutputSettings &settings, OutputFile &file) {
    file.name = settings.file == "-" ? kStandardOutput : settings.file;
    if (settings.file == "-") {
        if (file.split.count() > 0) return {ExitCode::kUsage, "--split needs files, not standard output"};
        if (isatty(fileno(file.standardOutput)) != 0)
            return {ExitCode::kUsage, "standard output is a terminal: send it to a file or a program"};
        return {};
    }
    if (file.split.count() > 0 && (file.format & kContainers) == 0)
        return {ExitCode::kUsage, "--split works with " + FormatNames(kContainers)};
    file.path = file.split.count() > 0 ? PatternOf(settings.file) : settings.file;
    return TryToWrite(settings.file);
}

} // namespace

std::string FormatNames(unsigned formats) {
    std::vector<std::string> names;
    for (const FormatName &row : kNames) {
        if ((formats & row.format) != 0) names.push_back(row.name);
        formats &= ~unsigned{row.format}; // the first name of each
    }
    return Joined(names, ", ");
}

Outcome ChooseOutput(const OutputSettings &settings, unsigned allowed, FILE *standardOutput, OutputFile &file) {
    const std::string name = NameOfFormat(settings);
    const FormatName *found = nullptr;
    for (const FormatName &row : kNames)
        if (strcasecmp(row.name, name.c_str()) == 0 && (row.format & allowed) != 0) found = &row;
    if (found == nullptr)
        return {ExitCode::kUsage,
                "what to write is told by the file's extension or by --format: " + FormatNames(allowed)};
    file.format = found->format;
    file.standardOutput = standardOutput;
    file.split = settings.split;
    if (Outcome missing = CheckBuiltIn(file.format); !missing.IsOk()) return missing;
    return ChoosePath(settings, file);
}

} // namespace tool
