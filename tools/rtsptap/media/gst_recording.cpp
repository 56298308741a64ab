// Recordings: packets through GStreamer's depayloaders and muxers into a file. The pipeline is built when it is
// known which streams deliver, since a muxer waits for each one that it has.
#include "base/console.h"
#include "media/gst_feed.h"
#include "media/gst_pipeline.h"

#include <algorithm>
#include <list>

namespace tool {
namespace {

constexpr auto kPatience = std::chrono::seconds(3); // with streams that have not begun
constexpr auto kPatienceWithClocks =
    std::chrono::milliseconds(3500);              // a first report comes by then (RFC 3550, 6.2)
constexpr std::size_t kMostAwaiting = 8192;       // packets of a stream; then nothing is awaited
constexpr auto kFinish = std::chrono::seconds(5); // to complete a file
constexpr GstClockTime kStalled = 3 * GST_SECOND; // a stream so far behind holds up the others
constexpr GstClockTime kBehind = GST_SECOND;      // how far behind it is then taken to be
constexpr GstClockTime kRounding = GST_MSECOND;   // of times, between streams whose clocks differ in their units

// On a thread of the pipeline; the name becomes its own.
gchar *NameNextPart(GstElement *, guint, gpointer output) {
    const auto &file = *static_cast<const OutputFile *>(output);
    const std::string path = NextPart(file.path);
    file.written->Add(path);
    return g_strdup(path.c_str());
}

class RecordingSink : public PacketSink {
public:
    RecordingSink(OutputFile file, const std::vector<StreamFormat> &streams) : file_(std::move(file)) {
        for (const StreamFormat &format : streams) feeds_.emplace_back(format, begin_);
    }

    void BeginSession(const OpenedSession &opened) override;
    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override;
    bool IsDone() override;
    Outcome Finish() override;

private:
    void GoOn(const RtpFeed &feed, Clock::time_point now);
    bool CanStart(Clock::time_point now) const;
    bool AwaitsClocks(Clock::time_point now) const;
    void Start();
    Outcome BuildPipeline(const std::vector<StreamFormat> &streams);
    void OpenAll();
    void CatchUp(GstClockTime time);
    void Fail(const Outcome &outcome);
    Outcome Complete();
    void NoteDuration() const;

    const OutputFile file_;
    const Clock::time_point begin_ = Clock::now();
    std::list<RtpFeed> feeds_;
    MediaPipeline pipeline_;
    Clock::time_point firstArrival_{};
    bool hasVideo_ = false; // the pipeline waits for a key frame
    bool closed_ = false;
    Outcome failure_; // the first one
};

void RecordingSink::Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
    const auto feed = std::find_if(feeds_.begin(), feeds_.end(), [&stream](const RtpFeed &candidate) {
        return candidate.Format().stream.number == stream.number;
    });
    if (closed_ || !failure_.IsOk() || feed == feeds_.end()) return;
    if (firstArrival_ == Clock::time_point{}) firstArrival_ = arrival;
    feed->Take(packet, arrival);
    GoOn(*feed, arrival);
}

// The streams of a session begin together, and not before the end of what has been recorded.
void RecordingSink::BeginSession(const OpenedSession &opened) {
    constexpr GstClockTime kPicture = 40 * GST_MSECOND;
    const auto start = std::make_shared<SessionStart>();
    GstClockTime end = 0;
    for (RtpFeed &feed : feeds_) {
        feed.BeginSession(opened, file_.latency, start);
        if (feed.HasPackets()) end = std::max(end, feed.Reached() + kPicture);
    }
    start->earliest = std::chrono::nanoseconds(end);
}

// With what a feed has delivered.
void RecordingSink::GoOn(const RtpFeed &feed, Clock::time_point now) {
    if (!pipeline_.IsBuilt() && CanStart(now)) Start();
    if (pipeline_.IsBuilt() && (!hasVideo_ || pipeline_.KeyFrameTime() != GST_CLOCK_TIME_NONE)) {
        OpenAll();
        CatchUp(feed.Reached());
    }
    if (feed.IsChoked()) Fail({ExitCode::kOutputFailed, "it takes less than the streams deliver"});
}

bool RecordingSink::CanStart(Clock::time_point now) const {
    const bool complete =
        std::all_of(feeds_.begin(), feeds_.end(), [](const RtpFeed &feed) { return feed.HasPackets(); });
    const bool any =
        std::any_of(feeds_.begin(), feeds_.end(), [](const RtpFeed &feed) { return feed.HasPackets(); });
    return complete ? !AwaitsClocks(now) : any && now - firstArrival_ > kPatience;
}

// What is not yet in a file can still be put where the sender's clocks say. A program that looks on waits for
// nothing.
bool RecordingSink::AwaitsClocks(Clock::time_point now) const {
    if (feeds_.size() == 1 || file_.path.empty() || now - firstArrival_ > kPatienceWithClocks) return false;
    const auto isFull = [](const RtpFeed &feed) { return feed.Kept() > kMostAwaiting; };
    return std::none_of(feeds_.begin(), feeds_.end(), isFull) &&
           !std::all_of(feeds_.begin(), feeds_.end(), [](const RtpFeed &feed) { return feed.HasClock(); });
}

void RecordingSink::Start() {
    std::vector<StreamFormat> streams;
    for (auto feed = feeds_.begin(); feed != feeds_.end();) {
        if (feed->HasPackets()) {
            streams.push_back((feed++)->Format());
            continue;
        }
        PrintNotice(NameOf(feed->Format().stream) + " is left out: it has not begun");
        feed = feeds_.erase(feed);
    }
    if (Outcome failed = BuildPipeline(streams); !failed.IsOk()) return Fail(failed);
    for (const StreamFormat &format : streams)
        hasVideo_ |= format.codec->IsVideo() && pipeline_.Element("gate") != nullptr;
    pipeline_.HoldUntilKeyFrame();
    for (RtpFeed &feed : feeds_) {
        const std::string number = std::to_string(feed.Format().stream.number);
        pipeline_.TakeOutDelay("encoder" + number, EncoderDelay());
        feed.Attach(pipeline_.Element(("feed" + number).c_str()));
        if (feed.Format().codec->IsVideo()) feed.Open();
    }
    if (Outcome failed = pipeline_.Start(); !failed.IsOk()) Fail(failed);
}

// Sound waits for the first picture, and what came before that is left out: a file does not begin black.
void RecordingSink::OpenAll() {
    const GstClockTime picture = pipeline_.KeyFrameTime();
    for (RtpFeed &feed : feeds_) {
        if (feed.IsOpen()) continue;
        if (picture != GST_CLOCK_TIME_NONE) feed.ForgetBefore(picture - std::min(picture, kRounding));
        feed.Open();
    }
}

Outcome RecordingSink::BuildPipeline(const std::vector<StreamFormat> &streams) {
    if (Outcome failed = pipeline_.Build(DescribeRecording(file_, streams)); !failed.IsOk()) return failed;
    const GstOwned<GstElement> out = pipeline_.Element("out");
    if (out != nullptr && file_.split.count() > 0) {
        g_signal_connect(out.get(), "format-location", G_CALLBACK(NameNextPart), const_cast<OutputFile *>(&file_));
    } else if (out != nullptr) {
        g_object_set(out.get(), "location", file_.path.c_str(), nullptr);
        file_.written->Add(file_.path);
    }
    return {};
}

// A muxer writes what all its streams have reached: one that has fallen silent is said to be silent.
void RecordingSink::CatchUp(GstClockTime time) {
    for (RtpFeed &feed : feeds_)
        if (feed.Reached() + kStalled < time) feed.SkipTo(time - kBehind);
}

void RecordingSink::Fail(const Outcome &outcome) {
    if (failure_.IsOk()) failure_ = {outcome.code, file_.name + ": " + outcome.text};
}

bool RecordingSink::IsDone() {
    const Clock::time_point now = Clock::now();
    for (RtpFeed &feed : feeds_) {
        if (closed_ || !failure_.IsOk()) break;
        feed.Release(now);
        GoOn(feed, now);
    }
    if (pipeline_.IsBuilt() && failure_.IsOk())
        if (Outcome trouble = pipeline_.Trouble(); !trouble.IsOk()) Fail(trouble);
    return !failure_.IsOk();
}

Outcome RecordingSink::Finish() {
    if (!closed_ && failure_.IsOk())
        if (Outcome failed = Complete(); !failed.IsOk()) Fail(failed);
    for (const RtpFeed &feed : feeds_)
        if (const std::string lateness = feed.Lateness(); !closed_ && !lateness.empty()) PrintNotice(lateness);
    closed_ = true;
    pipeline_.Stop();
    if (!failure_.IsOk()) file_.written->Clear();
    return failure_;
}

Outcome RecordingSink::Complete() {
    for (RtpFeed &feed : feeds_) feed.Flush();
    const bool any =
        std::any_of(feeds_.begin(), feeds_.end(), [](const RtpFeed &feed) { return feed.HasPackets(); });
    if (!any) return {};
    if (!pipeline_.IsBuilt()) Start();
    if (!failure_.IsOk()) return failure_;
    OpenAll();
    for (RtpFeed &feed : feeds_) feed.End();
    Outcome outcome = pipeline_.WaitForEnd(kFinish);
    NoteDuration();
    if (!hasVideo_ || pipeline_.KeyFrameTime() != GST_CLOCK_TIME_NONE) return outcome;
    const bool isHopeless =
        std::any_of(feeds_.begin(), feeds_.end(), [](const RtpFeed &feed) { return feed.LacksParameterSets(); });
    return {ExitCode::kNoMedia,
            isHopeless ? "no parameter sets came, without which nothing can be decoded, so there is no "
                         "picture in it"
                       : "no key frame came, so there is no picture in it"};
}

void RecordingSink::NoteDuration() const {
    GstClockTime begin = pipeline_.KeyFrameTime();
    GstClockTime end = 0;
    for (const RtpFeed &feed : feeds_) {
        if (!feed.HasPackets()) continue;
        end = std::max(end, feed.Reached());
        if (!hasVideo_) begin = std::min(begin, feed.Begun());
    }
    if (begin < end) file_.written->SetDuration(std::chrono::nanoseconds(end - begin));
}

// Why a stream cannot be in the file; empty when it can.
std::string Obstacle(const OutputFile &file, const StreamFormat &format, const std::vector<StreamFormat> &chosen) {
    if (!CanHold(file.format, *format.codec)) return "the file's format does not hold its codec";
    if (const std::string element = MissingElement(file.format, *format.codec); !element.empty())
        return "the GStreamer of this machine has no " + element;
    if (format.codec->needsParameters && format.parameters.empty()) return "AAC needs a description with config=";
    const auto isWhole = [](const StreamFormat &stream) { return stream.codec->type == RTP_CODEC_MP2T; };
    const bool alone =
        (file.format & kContainers) == 0 || isWhole(format) || std::any_of(chosen.begin(), chosen.end(), isWhole);
    return alone && !chosen.empty() ? "the file holds one stream" : "";
}

} // namespace

Outcome MakeRecordingSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                          std::unique_ptr<PacketSink> &sink) {
    std::vector<StreamFormat> chosen;
    for (const StreamFormat &format : streams) {
        const std::string obstacle = Obstacle(file, format, chosen);
        if (obstacle.empty())
            chosen.push_back(format);
        else
            PrintNotice(NameOf(format.stream) + " is not recorded: " + obstacle);
    }
    if (chosen.empty())
        return {ExitCode::kNoSupportedStream,
                file.name + ": " + FormatNames(file.format) + " holds none of the streams"};
    sink = std::make_unique<RecordingSink>(file, chosen);
    return {};
}

} // namespace tool
