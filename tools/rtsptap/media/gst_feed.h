// One stream's packets on their way into a pipeline: in order, with their times, whole frames only, and kept until
// there is a pipeline. One thread at a time.
#pragma once

#include "media/gst_pipeline.h"
#include "media/media_time.h"
#include "media/reorder_buffer.h"
#include "session/opening.h"

#include <gst/app/gstappsrc.h>

#include <deque>
#include <vector>

namespace tool {

class RtpFeed {
public:
    RtpFeed(StreamFormat format, Clock::time_point begin);

    const StreamFormat &Format() const { return format_; }
    bool HasPackets() const { return taken_; }
    bool IsOpen() const { return open_; }
    GstClockTime Begun() const { return begun_; }      // time of the first packet
    GstClockTime Reached() const { return reached_; }  // of the latest one
    std::size_t Kept() const { return ready_.size(); } // packets
    bool HasClock() const { return time_.HasClock(); } // of the sender, which it has told
    bool LacksParameterSets() const; // what H.264 cannot be decoded without has come neither with the description
                                     // nor in packets

    // What comes next is of a new session: over TCP nothing has to be put in order.
    void BeginSession(const OpenedSession &opened, std::chrono::milliseconds window,
                      const std::shared_ptr<SessionStart> &start);
    void Take(const RTPStreamData &packet, Clock::time_point arrival);
    void Release(Clock::time_point now);      // what need not be waited for any more
    void ForgetBefore(GstClockTime time);     // of what is kept
    void Attach(GstOwned<GstElement> appsrc); // to a pipeline that has not been started
    void Open();                              // from now on packets go there, the kept ones first
    void SkipTo(GstClockTime time);           // tells the pipeline that nothing came until then
    bool IsChoked() const;                    // the pipeline takes less than comes
    void Flush();                             // waits for nothing any more
    void End();                               // a frame without its end is left out
    std::string Lateness() const;             // what came too late to be put in order; empty when nothing did

private:
    void TakeNext(const HeldPacket &packet);
    void MoveKept(std::chrono::nanoseconds by);
    void Deliver();

    const StreamFormat format_;
    ReorderBuffer order_;
    std::chrono::milliseconds window_{0}; // of the first session that needed one
    MediaTime time_;
    const Session *session_ = nullptr; // of the packets that come: it outlives them
    GstOwned<GstElement> appsrc_;      // null until attached
    bool open_ = false;
    bool taken_ = false;
    bool hasParameterSets_ = false;
    uint8_t payloadType_ = 0;
    uint32_t timestamp_ = 0; // of frame_
    GstClockTime begun_ = 0;
    GstClockTime reached_ = 0;
    std::vector<GstMini<GstBuffer>> frame_; // packets of the frame that is arriving
    std::deque<GstMini<GstBuffer>> ready_;  // not delivered for want of a pipeline
};

} // namespace tool
