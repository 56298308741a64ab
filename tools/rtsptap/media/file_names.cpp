#include "media/file_names.h"

#include "base/console.h"
#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr const char *kConversions = "aAbBCdeFgGHIjklmMpRsSTuUVwWyYzZ";

std::string FormatTime(const char conversion, const std::tm &time) {
    const char format[] = {'%', conversion, '\0'};
    char text[128];
    return std::string(text, std::strftime(text, sizeof text, format, &time));
}

// The text, and whether there is a time in it.
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
    char number[32];
    std::snprintf(number, sizeof number, "%03lld", static_cast<long long>(highest + 1));
    return stem.string() + number + extension;
}

bool Ask(const std::string &question, Interruption &interruption, Outcome &outcome) {
    constexpr auto kLook = std::chrono::milliseconds(50);
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

} // namespace

std::string WithTime(const std::string &pattern) { return Expand(pattern).first; }

std::string NextPart(const std::string &pattern) {
    const auto [path, hasTime] = Expand(pattern);
    std::error_code error;
    return hasTime && !std::filesystem::exists(path, error) ? path : Numbered(path);
}

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

} // namespace tool
