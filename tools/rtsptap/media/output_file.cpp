#include "media/output_file.h"

#include "base/text.h"
#include "base/writing.h"
#include "media/file_names.h"

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

Outcome ChoosePath(const OutputSettings &settings, Interruption &interruption, OutputFile &file) {
    file.name = settings.file == "-" ? kStandardOutput : settings.file;
    if (settings.file == "-") {
        if (file.split.count() > 0) return {ExitCode::kUsage, "--split needs files, not standard output"};
        if (isatty(fileno(file.standardOutput)) != 0)
            return {ExitCode::kUsage, "standard output is a terminal: send it to a file or a program"};
        return {};
    }
    if (file.split.count() > 0 && (file.format & kContainers) == 0)
        return {ExitCode::kUsage, "--split works with " + FormatNames(kContainers)};
    if (settings.force && settings.noClobber)
        return {ExitCode::kUsage, "--force and --no-clobber contradict one another"};
    if (file.split.count() > 0) {
        file.path = settings.file;
        return TryToWrite(NextPart(file.path));
    }
    file.name = file.path = WithTime(settings.file);
    const Overwriting overwriting = settings.force       ? Overwriting::kAlways
                                    : settings.noClobber ? Overwriting::kNever
                                                         : Overwriting::kAsk;
    Outcome outcome = TryToWrite(file.path);
    if (outcome.IsOk()) outcome = AllowOverwriting(file.path, overwriting, interruption);
    return outcome;
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

Outcome ChooseOutput(const OutputSettings &settings, unsigned allowed, FILE *standardOutput,
                     Interruption &interruption, OutputFile &file) {
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
    return ChoosePath(settings, interruption, file);
}

} // namespace tool
