#include "rtp/rtcp/goodbye.h"

#include "platform/system.h"
#include "rtp/media_session.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

namespace rtsptap {
namespace {

constexpr uint64_t kLookMs = 500;

// The session's count is for those who look at all streams.
void SetGoodbye(RTSPStreamInfo &stream, const DoubtedGoodbye &goodbye) {
    std::atomic<int32_t> &count = stream.session->doubtedGoodbyes;
    const int change = (goodbye.lookMs != 0 ? 1 : 0) - (stream.rtcp.goodbye.lookMs != 0 ? 1 : 0);
    stream.rtcp.goodbye = goodbye;
    count.fetch_add(change, std::memory_order_relaxed);
}

bool NoneIsDoubted(const MediaSession &session) {
    return session.doubtedGoodbyes.load(std::memory_order_relaxed) == 0;
}

} // namespace

void NoteGoodbye(RTSPStreamInfo &stream) {
    if (!stream.session->dialect.IsOn(Rule::kGoodbyeAndOn)) return EndReception(stream, RTSPTAP_SENDER_LEFT);
    if (stream.rtcp.goodbye.lookMs != 0) return;
    SetGoodbye(stream, {.lookMs = MonotonicMs() + kLookMs});
}

int GoodbyeDueIn(const RTSPStreamInfo &stream) {
    const uint64_t look = stream.rtcp.goodbye.lookMs;
    if (look == 0) return -1;
    const uint64_t now = MonotonicMs();
    return look > now ? static_cast<int>(look - now) : 0;
}

void JudgeGoodbye(RTSPStreamInfo &stream) {
    if (GoodbyeDueIn(stream) != 0) return;
    const DoubtedGoodbye goodbye = stream.rtcp.goodbye;
    const uint32_t handled = stream.handled.load(std::memory_order_relaxed);
    if (!goodbye.isLast)
        return SetGoodbye(stream, {.lookMs = MonotonicMs() + kLookMs, .isLast = true, .handled = handled});
    SetGoodbye(stream, {});
    if (handled == goodbye.handled)
        EndReception(stream, RTSPTAP_SENDER_LEFT);
    else
        (void)stream.session->dialect.Permits(Rule::kGoodbyeAndOn);
}

int GoodbyesDueIn(const MediaSession &session) {
    if (NoneIsDoubted(session)) return -1;
    int due = -1;
    const RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire))
        due = Sooner(due, GoodbyeDueIn(*stream));
    return due;
}

void JudgeGoodbyes(const MediaSession &session) {
    if (NoneIsDoubted(session)) return;
    RTSPStreamInfo *stream = session.streamList.load(std::memory_order_acquire);
    for (; stream != nullptr; stream = stream->next.load(std::memory_order_acquire)) JudgeGoodbye(*stream);
}

} // namespace rtsptap
