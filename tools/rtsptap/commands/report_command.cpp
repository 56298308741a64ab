#include "commands/report_command.h"

#include "base/console.h"
#include "base/writing.h"
#include "reception/receive.h"
#include "views/arrivals.h"
#include "views/html_report.h"
#include "views/live_view.h"
#include "views/report.h"
#include "views/warnings.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tool {
namespace {

// Takes the page's place in the file system before anything is connected. A page of before stays until the new one
// is complete.
class PageFile {
public:
    PageFile() = default;
    ~PageFile() {
        if (owned_ && file_ != nullptr) std::fclose(file_);
        if (!temporary_.empty()) unlink(temporary_.c_str());
    }
    PageFile(const PageFile &) = delete;
    PageFile &operator=(const PageFile &) = delete;

    Outcome Open(const std::string &path, FILE *standardOutput) {
        path_ = path;
        owned_ = path != "-";
        struct stat present = {};
        const bool exists = owned_ && lstat(path.c_str(), &present) == 0;
        if (owned_ && (!exists || S_ISREG(present.st_mode))) temporary_ = path + ".part";
        file_ = owned_ ? std::fopen((temporary_.empty() ? path : temporary_).c_str(), "we") : standardOutput;
        if (file_ != nullptr) return {};
        temporary_.clear();
        return WriteFailure(Name(), errno);
    }

    Outcome Write(const std::string &page) {
        if (Outcome failed = WriteText(file_, page, Name()); !failed.IsOk() || !owned_) return failed;
        if (std::fclose(std::exchange(file_, nullptr)) != 0) return WriteFailure(Name(), errno);
        if (temporary_.empty()) return {};
        if (std::rename(temporary_.c_str(), path_.c_str()) != 0) return WriteFailure(Name(), errno);
        temporary_.clear();
        return {};
    }

private:
    std::string Name() const { return owned_ ? path_ : kStandardOutput; }

    std::string path_;
    std::string temporary_; // empty: written in place
    bool owned_ = false;
    FILE *file_ = nullptr;
};

std::string LocalTime() {
    const std::time_t now = std::time(nullptr);
    tm parts = {};
    localtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts);
    return text;
}

} // namespace

Outcome WriteReport(const ReportSettings &settings, FILE *standardOutput, Interruption &interruption) {
    PageFile file;
    if (Outcome failed = file.Open(settings.output, standardOutput); !failed.IsOk()) return failed;
    ReportPage page;
    page.probed.url = UrlWithoutCredentials(settings.server.url);
    page.time = LocalTime();
    SeriesRecorder recorder;
    Arrivals arrivals;
    const std::unique_ptr<Watcher> warnings = MakeWarnings();
    const std::unique_ptr<Watcher> view = MakeLiveView();
    std::atomic<bool> delivers{false};
    bool opened = false;

    Audience audience;
    audience.watchers = {&recorder, warnings.get(), view.get()};
    audience.observers = {recorder.Observer(),
                          [&](const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
                              delivers = true;
                              arrivals.Note(stream, packet, arrival);
                          }};
    // Of the session that delivered first: before it there may have been one over another transport.
    audience.opened = [&](const OpenedSession &session) {
        if (delivers) return;
        opened = true;
        TakeOpening(session, page.probed);
        page.omissions = DescribeOmissions(session);
        arrivals.Begin(ProbedStreamsOf(session));
    };
    page.probed.outcome = ReceiveFromServer(settings.server, settings.duration, audience, interruption);
    if (!opened) return page.probed.outcome;
    if (page.probed.outcome.IsOk()) page.probed.outcome = JudgeStreams(recorder.Last().streams);
    page.probed.streams = arrivals.Streams();
    if (Outcome failed = file.Write(HtmlReport(page, recorder)); !failed.IsOk()) return failed;
    if (settings.output != "-") PrintNotice("the report is in " + settings.output);
    return page.probed.outcome;
}

} // namespace tool
