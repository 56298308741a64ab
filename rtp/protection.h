// What takes the protection off a stream's packets (SRTP; RFC 3711), where the description asks for it and the
// program has set something of the kind (RTSPTapSetPacketProtection). Made by the application thread while nobody
// receives for the stream; RTP goes through it in the turn of whoever receives, RTCP on any thread that reads or
// sends it. A stream of RTP/AVP has none, and pays nothing.
#pragma once

#include "rtp/shared_table.h"
#include "rtsptap_extended.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace rtsptap {

struct RTSPStreamInfo;

struct ProtectionMaker : SharedTable<RTSPTapPacketProtection> {};

struct StreamProtection {
    ProtectionMaker *maker = nullptr;
    void *state = nullptr; // the maker's
    bool told = false;     // that packets are dropped; whoever receives
};

// ---- Application thread ----

void CloseProtection(StreamProtection *protection);
struct ProtectionDeleter {
    void operator()(StreamProtection *protection) const { CloseProtection(protection); }
};
using ProtectionPtr = std::unique_ptr<StreamProtection, ProtectionDeleter>;

// By the keys of the first line of the stream's section that can be used. RTSP_SUCCESS, RTSPTAP_BAD_KEYS or
// RTSP_NO_MEMORY.
int32_t OpenProtection(ProtectionMaker &maker, const RTSPStreamInfo &stream, ProtectionPtr &opened);

// The stream's from now on, in place of what it had. Null: none.
void SetProtection(RTSPStreamInfo &stream, ProtectionPtr protection);

// By name; null for a stream that has none.
const char *SuiteOf(const RTSPStreamInfo &stream);

// ---- Whoever receives, reads or sends ----

inline constexpr std::size_t kMostProtection = 256; // bytes that a packet may become longer by

// Of a stream that has one. In place: `size` becomes what is left. False: not to be used, and counted.
bool UnprotectRtp(RTSPStreamInfo &stream, uint8_t *packet, uint32_t &size);
// The same; of a stream without there is nothing to take off.
bool UnprotectRtcp(RTSPStreamInfo &stream, uint8_t *packet, int32_t &size);
// The packet in the first `size` bytes of the room, as it is to be sent; false: it is not.
bool ProtectRtcp(const RTSPStreamInfo &stream, std::span<uint8_t> room, int32_t &size);

} // namespace rtsptap
