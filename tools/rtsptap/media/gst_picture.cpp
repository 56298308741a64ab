// The first picture that can be decoded, as one file.
#include "base/writing.h"
#include "media/gst_feed.h"
#include "media/gst_pipeline.h"

#include <gst/app/gstappsink.h>

#include <cerrno>

namespace tool {
namespace {

class PictureSink : public PacketSink {
public:
    PictureSink(OutputFile file, const StreamFormat &format)
        : file_(std::move(file)), feed_(format, Clock::now()) {}

    void BeginSession(const OpenedSession &opened) override {
        feed_.BeginSession(opened, file_.latency, std::make_shared<SessionStart>());
    }

    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override {
        if (closed_ || stream.number != feed_.Format().stream.number) return;
        feed_.Take(packet, arrival);
        StartWhenKnown();
    }

    bool IsDone() override {
        if (!failure_.IsOk() || picture_ != nullptr) return true;
        feed_.Release(Clock::now());
        StartWhenKnown();
        if (out_ == nullptr) return false;
        picture_.reset(gst_app_sink_try_pull_sample(GST_APP_SINK(out_.get()), 0));
        failure_ = picture_ != nullptr ? Outcome{} : pipeline_.Trouble();
        return picture_ != nullptr || !failure_.IsOk();
    }

    Outcome Finish() override {
        closed_ = true;
        out_.reset();
        pipeline_.Stop();
        if (!failure_.IsOk()) return failure_;
        if (!feed_.HasPackets()) return {ExitCode::kNoMedia, "no packet of a picture arrived"};
        if (picture_ == nullptr) return {ExitCode::kNoMedia, "no picture could be decoded in time"};
        return WritePicture();
    }

private:
    // The first packet tells the payload type.
    void StartWhenKnown() {
        if (feed_.HasPackets() && !pipeline_.IsBuilt() && failure_.IsOk()) failure_ = Start();
    }

    Outcome Start() {
        Outcome failed = pipeline_.Build(DescribePicture(file_.format, *feed_.Format().codec));
        if (!failed.IsOk()) return failed;
        pipeline_.HoldUntilKeyFrame();
        out_ = pipeline_.Element("out");
        feed_.Attach(pipeline_.Element("feed"));
        feed_.Open();
        return pipeline_.Start();
    }

    Outcome WritePicture() {
        GstMapInfo bytes;
        GstBuffer *buffer = gst_sample_get_buffer(picture_.get());
        if (buffer == nullptr || gst_buffer_map(buffer, &bytes, GST_MAP_READ) == FALSE)
            return {ExitCode::kOutputFailed, file_.name + ": the picture cannot be read"};
        FILE *out = nullptr;
        Outcome outcome = OpenForWriting(file_, out);
        if (outcome.IsOk()) {
            const bool written = std::fwrite(bytes.data, 1, bytes.size, out) == bytes.size;
            if (std::fclose(out) != 0 || !written) outcome = WriteFailure(file_.name, errno);
        }
        gst_buffer_unmap(buffer, &bytes);
        return outcome;
    }

    const OutputFile file_;
    RtpFeed feed_;
    MediaPipeline pipeline_;
    GstOwned<GstElement> out_;
    GstMini<GstSample> picture_;
    bool closed_ = false;
    Outcome failure_; // the first one
};

} // namespace

Outcome MakePictureSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink) {
    for (const StreamFormat &format : streams) {
        if (!format.codec->IsVideo() || *format.codec->decoder == '\0') continue;
        if (const std::string element = MissingElement(file.format, *format.codec); !element.empty())
            return {ExitCode::kOutputFailed, "the GStreamer of this machine has no " + element};
        sink = std::make_unique<PictureSink>(file, format);
        return {};
    }
    return {ExitCode::kNoSupportedStream, "no stream has pictures"};
}

} // namespace tool
