// Frames of an interleaved connection on their way to streams: whose they are, whether they find a place, and the
// ring that the bytes are read into before. In the connection's turn.
#pragma once

#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/media_session.h"

#include <cstdint>
#include <string_view>

namespace rtsptap {

// Looks for the stream of every channel.
void MakeRoutes(const MediaSession &session, ReadAhead &reader);

// Looks for them anew where the list of streams, or a channel, has changed.
inline void RefreshRoutes(const MediaSession &session, ReadAhead &reader) {
    const uint32_t changes = session.channelChanges; // before the look, so that one during it is seen next time
    if (reader.routesMade != changes) MakeRoutes(session, reader);
    reader.routesMade = changes;
}

// The first stream in description order that has the channel for RTP or, one above, for RTCP. A description may
// have thousands.
inline const Route &FindRoute(const MediaSession &session, ReadAhead &reader, uint8_t channel) {
    RefreshRoutes(session, reader);
    return reader.routes[channel];
}

enum class Fit { kFits, kNowhere, kNoMemory };

// Whether the frame whose header is known can be taken. Prints why not.
Fit FindPlace(const MediaSession &session, const Route &route, const Unit &frame);

// A whole frame of a channel that no stream has: whether it tells the channel of one whose server has not named it.
bool TakesUnsaidChannel(const MediaSession &session, const Unit &frame, std::string_view text);

// The whole frame at the front of `text`, which found a place: queued, or answered.
void Deliver(ReadAhead &reader, const Route &route, std::string_view text, const Unit &unit);

// Tells readers of all that was delivered since the last time, once.
void SignalDueStreams(ReadAhead &reader);

// Before bytes are read: the room that the ring of a stream has free, where its next packet goes or would, if it is
// enough; else the reader has memory of its own.
void BorrowRoom(ReadAhead &reader);

} // namespace rtsptap
