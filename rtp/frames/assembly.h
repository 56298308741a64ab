// An assembly of frames: the bytes of the frame under way and of those that wait to be handed out, one behind the
// other, and what is known of each. What a payload format does with a packet is a function of payloads.h; it
// appends bytes and says where frames end. Knows nothing of clients or streams. One thread at a time.
#pragma once

#include "rtsptap_frames.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace rtsptap {

using Bytes = std::span<const uint8_t>;

struct Packet {
    Bytes payload;
    bool isMarked = false;
    bool followsLoss = false; // packets before it are missing
};

// Frames in `bytes`: those from `nextOut` on wait, the one under way begins at `begin`.
struct Frame {
    std::size_t begin = 0;
    std::size_t end = 0;
    RTSPTapFrame is = {};
};

struct AacFormat { // bits, as format parameters say (RFC 3640, 4.1)
    int32_t sizeLength = 0;
    int32_t indexLength = 0;
    int32_t indexDeltaLength = 0;
    int32_t ctsDeltaLength = 0;
    int32_t dtsDeltaLength = 0;
    int32_t constantSize = 0; // bytes; 0: sizes are told
    int32_t hasRandomAccess = 0;
    int32_t streamStateLength = 0;
    uint32_t samples = 1024; // of a frame
    uint8_t adts[7] = {};    // header without its size; all 0 where none can be made
};

struct JpegTables { // quantization tables that came last, and the quality that they are of
    uint8_t quality = 0;
    bool areWide = false; // 16 bits a value
    std::vector<uint8_t> bytes;
};

struct Assembly {
    // ---- Constant ----
    void (*add)(Assembly &assembly, const Packet &packet) = nullptr; // a payload format's
    RTSPTapFramesFormat format = RTSPTAP_FRAMES_STREAM;
    std::size_t largestFrame = 0;       // bytes
    std::vector<uint8_t> parameterSets; // of the description, as they are put before a key frame
    AacFormat aac;
    bool hasDecodingOrder = false; // H.265: units carry their decoding order numbers

    // ---- Frames ----
    std::vector<uint8_t> bytes;
    std::vector<Frame> whole;
    std::size_t nextOut = 0; // in `whole`
    Frame current;
    bool isUnderWay = false;

    // ---- The frame under way ----
    std::size_t unitBegin = 0; // H.264 and H.265: the NAL unit that comes in fragments
    bool isInUnit = false;
    bool hasOwnSets = false;      // H.264 and H.265: the stream has brought parameter sets
    std::size_t jpegExpected = 0; // bytes of the scan so far, as offsets count them
    std::size_t aacExpected = 0;  // bytes of an access unit in fragments

    JpegTables jpegTables; // stay for the next frames

    // ---- The packet before ----
    bool hasLast = false;
    uint16_t lastSequence = 0;
    uint32_t lastTimestamp = 0;
    uint32_t ssrc = 0;
    int64_t time = 0;  // of lastTimestamp
    uint32_t lost = 0; // since the last whole frame
};

// ---- for payload formats ----

// Appends to the frame under way; what does not fit is dropped and the frame damaged.
void Append(Assembly &assembly, Bytes bytes);
inline void Append(Assembly &assembly, uint8_t byte) { Append(assembly, {&byte, 1}); }
// Drops what was appended from `begin` on.
void CutBack(Assembly &assembly, std::size_t begin);
void MarkDamaged(Assembly &assembly);
inline void MarkKey(Assembly &assembly) { assembly.current.is.isKey = 1; }
// The frame under way is whole; without a byte it is none.
void FinishFrame(Assembly &assembly);
// The next frame of the same packet, `ticks` later.
void BeginFrameBehind(Assembly &assembly, uint32_t ticks);

} // namespace rtsptap
