// GStreamer's pipelines: their description, from RTP packets to a file or a picture, and how they run and end.
#pragma once

#include "base/outcome.h"
#include "media/output_file.h"

#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tool {

// What is GStreamer's and released with its holder.
struct UnrefObject {
    void operator()(void *object) const { gst_object_unref(object); }
};
template <typename Object> using GstOwned = std::unique_ptr<Object, UnrefObject>;

struct UnrefMini {
    void operator()(void *object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
};
template <typename Object> using GstMini = std::unique_ptr<Object, UnrefMini>;

class MediaPipeline {
public:
    MediaPipeline() = default;
    ~MediaPipeline();
    MediaPipeline(const MediaPipeline &) = delete;
    MediaPipeline &operator=(const MediaPipeline &) = delete;

    // Builds what the text describes, as gst-launch-1.0 would; call Start when the sources are attached.
    Outcome Build(const std::string &description);
    Outcome Start();
    bool IsBuilt() const { return pipeline_ != nullptr; }
    GstOwned<GstElement> Element(const char *name) const; // null when there is none

    // Drops what leaves the element called "gate" until the first key frame.
    void HoldUntilKeyFrame();
    GstClockTime KeyFrameTime() const { return keyFrame_; } // its time; GST_CLOCK_TIME_NONE before

    // Times what the element, an encoder of sound, puts out by so many samples earlier, and drops what then lies
    // before the first of them: what it puts there is silence. Nothing when there is no such element.
    void TakeOutDelay(const std::string &encoder, uint32_t samples);

    Outcome Trouble();                                   // Ok while all is well
    Outcome WaitForEnd(std::chrono::milliseconds limit); // after the sources have ended
    void Stop();                                         // releases everything

private:
    Outcome Look(GstClockTime limit, bool &ended);

    GstOwned<GstElement> pipeline_;
    GstOwned<GstBus> bus_;
    std::atomic<GstClockTime> keyFrame_{GST_CLOCK_TIME_NONE}; // set by a thread of the pipeline
};

// The file's format can hold the codec.
bool CanHold(FileFormat format, const Codec &codec);

// The first element that GStreamer lacks here to put the codec into such a file, or to decode it for a picture;
// empty when there are all.
std::string MissingElement(FileFormat format, const Codec &codec);

// Samples by which sound that is encoded anew comes out late.
uint32_t EncoderDelay();

// The whole pipeline: a source "feedN" for each of the streams, N being its number, an element "encoderN" for those
// that are encoded anew, and, unless it is standard output, an element "out" that wants the file's location.
std::string DescribeRecording(const OutputFile &file, const std::vector<StreamFormat> &streams);

// From a source "feed" of the codec's packets to a sink "out" of one encoded picture.
std::string DescribePicture(FileFormat format, const Codec &codec);

} // namespace tool
