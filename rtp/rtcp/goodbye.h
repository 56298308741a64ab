// Senders that say goodbye (RFC 3550, 6.6) and go on. Where the rule for them is on a goodbye is doubted: packets
// that were under way come behind it, those that come later still are of a sender that has not left. By whoever
// handles the stream's RTCP.
#pragma once

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// The stream's sender has said it.
void NoteGoodbye(RTSPStreamInfo &stream);

// In how many ms to look again; -1: no goodbye is doubted.
int GoodbyeDueIn(const RTSPStreamInfo &stream);
// Looks, where that is due.
void JudgeGoodbye(RTSPStreamInfo &stream);

// The same for all streams of an interleaved connection.
int GoodbyesDueIn(const MediaSession &session);
void JudgeGoodbyes(const MediaSession &session);

} // namespace rtsptap
