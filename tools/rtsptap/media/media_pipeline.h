// A running GStreamer pipeline and how it ends.
#pragma once

#include "base/outcome.h"
#include "media/gst_owned.h"

#include <atomic>
#include <chrono>
#include <string>

namespace tool {

class MediaPipeline {
public:
    MediaPipeline() = default;
    ~MediaPipeline();
    MediaPipeline(const MediaPipeline &) = delete;
    MediaPipeline &operator=(const MediaPipeline &) = delete;

    static bool HasElement(const char *name);

    // Builds what the text describes, as gst-launch-1.0 would; call Start when the sources are attached.
    Outcome Build(const std::string &description);
    Outcome Start();
    bool IsBuilt() const { return pipeline_ != nullptr; }
    GstOwned<GstElement> Element(const char *name) const; // null when there is none

    // Drops what leaves the element called "gate" until the first picture that needs no other.
    void HoldUntilKeyFrame();
    GstClockTime KeyFrameTime() const { return keyFrame_; } // of that picture; GST_CLOCK_TIME_NONE before

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

} // namespace tool
