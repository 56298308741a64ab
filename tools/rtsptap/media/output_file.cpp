#include "media/output_file.h"

#include "base/console.h"
#include "base/text.h"
#include "base/writing.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef RTSPTAP_WITH_GSTREAMER
#include <gst/gst.h>
#endif

namespace tool {
namespace {

struct FormatName {
    const char *name; // also the extension
    FileFormat format;
};

constexpr FormatName kNames[] = {
    {"mp4", kMp4}, {"mkv", kMkv}, {"ts", kTs},       {"h264", kH264}, {"h265", kH265},
    {"aac", kAac}, {"wav", kWav}, {"mjpeg", kMjpeg}, {"pcap", kPcap}, {"rtpdump", kRtpdump},
    {"png", kPng}, {"jpg", kJpg}, {"jpeg", kJpg},
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

// What takes its time is done while no packets come.
void PrepareFormat([[maybe_unused]] FileFormat format) {
#ifdef RTSPTAP_WITH_GSTREAMER
    if ((format & (kNeedsLibpcap | kNeedsNothing)) == 0) gst_init(nullptr, nullptr);
#endif
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

constexpr const char *kConversions = "aAbBCdeFgGHIjklmMpRsSTuUVwWyYzZ";

std::string FormatTime(const char conversion, const std::tm &time) {
    const char format[] = {'%', conversion, '\0'};
    char text[128];
    return std::string(text, std::strftime(text, sizeof text, format, &time));
}

// The pattern with its conversions of strftime as the local time now, and whether it has any; "%%" is "%", and what
// is no conversion, or would put a "/" there, stays as it is.
std::pair<std::string, bool> Expand(const std::string &pattern) {
    const std::time_t now = std::time(nullptr);
    std::tm time = {};
    localtime_r(&now, &time);
    std::pair<std::string, bool> expanded;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        const char next = pattern[at] == '%' && at + 1 < pattern.size() ? pattern[at + 1] : '\0';
        const bool isTime = next != '\0' && std::strchr(kConversions, next) != nullptr;
        if (isTime)
            expanded.first += FormatTime(next, time);
        else
            expanded.first += pattern[at];
        at += isTime || next == '%' ? 1 : 0;
        expanded.second |= isTime;
    }
    return expanded;
}

// Where the number goes: before the extension.
std::size_t EndOfStem(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return hasExtension ? dot : path.size();
}

// 12 of "walk-012.mp4"; 0 when the name has another form.
int64_t NumberOf(const std::string &name, const std::string &stem, const std::string &extension) {
    if (name.size() <= stem.size() + extension.size() || name.compare(0, stem.size(), stem) != 0) return 0;
    const char *const end = name.data() + name.size() - extension.size();
    int64_t number = 0;
    const auto [stop, error] = std::from_chars(name.data() + stem.size(), end, number);
    return error == std::errc() && stop == end && extension == end && number > 0 ? number : 0;
}

std::string Numbered(const std::string &path) {
    const std::size_t end = EndOfStem(path);
    const std::filesystem::path stem = path.substr(0, end) + "-";
    const std::string extension = path.substr(end);
    int64_t highest = 0;
    std::error_code error;
    const std::filesystem::path directory = stem.has_parent_path() ? stem.parent_path() : ".";
    for (std::filesystem::directory_iterator entry(directory, error), last; !error && entry != last;
         entry.increment(error))
        highest = std::max(highest, NumberOf(entry->path().filename(), stem.filename(), extension));
    return stem.string() + Formatted("%03" PRId64, highest + 1) + extension;
}

bool Ask(const std::string &question, Interruption &interruption, Outcome &outcome) {
    constexpr auto kLook = std::chrono::milliseconds(50);
    FlushLines();
    std::fprintf(stderr, "rtsptap: %s [y/N] ", question.c_str());
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    while (poll(&waiting, 1, 0) <= 0)
        if (const int signal = interruption.WaitFor(kLook); signal != 0) {
            outcome = OutcomeOfSignal(signal);
            return false;
        }
    char answer[64];
    const ssize_t length = read(STDIN_FILENO, answer, sizeof answer);
    return length > 0 && (answer[0] == 'y' || answer[0] == 'Y');
}

enum class Overwriting { kAsk, kAlways, kNever };

// Ok unless the file exists and holds something that is to be kept; asks where there is somebody to ask.
Outcome AllowOverwriting(const std::string &path, Overwriting overwriting, Interruption &interruption) {
    struct stat status;
    const bool holdsSomething = stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
    if (!holdsSomething || overwriting == Overwriting::kAlways) return {};
    Outcome outcome = {ExitCode::kOutputFailed, path + ": exists already, and only --force overwrites it"};
    const bool mayAsk =
        overwriting == Overwriting::kAsk && !IsQuiet() && isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    if (mayAsk && Ask(Printable(path) + " exists already. Overwrite it?", interruption, outcome)) return {};
    return outcome;
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
    file.name = file.path = Expand(settings.file).first;
    const Overwriting overwriting = settings.force       ? Overwriting::kAlways
                                    : settings.noClobber ? Overwriting::kNever
                                                         : Overwriting::kAsk;
    Outcome outcome = TryToWrite(file.path);
    if (outcome.IsOk()) outcome = AllowOverwriting(file.path, overwriting, interruption);
    return outcome;
}

} // namespace

std::string NextPart(const std::string &pattern) {
    const auto [path, hasTime] = Expand(pattern);
    std::error_code error;
    return hasTime && !std::filesystem::exists(path, error) ? path : Numbered(path);
}

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
        if (SameText(row.name, name) && (row.format & allowed) != 0) found = &row;
    if (found == nullptr)
        return {ExitCode::kUsage,
                "what to write is told by the file's extension or by --format: " + FormatNames(allowed)};
    file.format = found->format;
    file.standardOutput = standardOutput;
    file.split = settings.split;
    if (Outcome missing = CheckBuiltIn(file.format); !missing.IsOk()) return missing;
    PrepareFormat(file.format);
    return ChoosePath(settings, interruption, file);
}

Outcome OpenForWriting(const OutputFile &file, FILE *&opened) {
    opened =
        file.path.empty() ? fdopen(dup(fileno(file.standardOutput)), "wb") : std::fopen(file.path.c_str(), "wb");
    if (opened == nullptr) return WriteFailure(file.name, errno);
    if (!file.path.empty()) file.written->Add(file.path);
    // A program at the other end of a pipe gets each packet as it comes.
    if (file.path.empty()) std::setvbuf(opened, nullptr, _IONBF, 0);
    return {};
}

Outcome MakeSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                 std::unique_ptr<PacketSink> &sink) {
    if (file.format == kRtpdump) return MakeRtpdumpSink(file, streams, sink);
#ifdef RTSPTAP_WITH_LIBPCAP
    if (file.format == kPcap) return MakePcapSink(file, streams, sink);
#endif
#ifdef RTSPTAP_WITH_GSTREAMER
    if ((file.format & kPictures) != 0) return MakePictureSink(file, streams, sink);
    return MakeRecordingSink(file, streams, sink);
#else
    // ChooseOutput has refused these formats before.
    return {ExitCode::kOutputFailed, FormatNames(file.format) + ": not in this build"};
#endif
}

} // namespace tool
