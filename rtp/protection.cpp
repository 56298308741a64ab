#include "rtp/protection.h"

#include "platform/printers.h"
#include "rtp/media_session.h"
#include "rtp/statistics.h"
#include "rtp/stream.h"

#include <new>
#include <string_view>
#include <utility>

namespace rtsptap {

// ---- application thread ----

void CloseProtection(StreamProtection *protection) {
    if (protection == nullptr) return;
    if (protection->state != nullptr) protection->maker->table.close(protection->state);
    DropTable(protection->maker);
    delete protection;
}

namespace {

bool HasKeys(const SDPField &line) {
    const std::string_view value = line.value;
    return line.name[0] == 'a' && (value.starts_with("crypto:") || value.starts_with("key-mgmt:"));
}

} // namespace

int32_t OpenProtection(ProtectionMaker &maker, const RTSPStreamInfo &stream, ProtectionPtr &opened) {
    ProtectionPtr protection(new (std::nothrow) StreamProtection{});
    if (!protection) return RTSP_NO_MEMORY;
    protection->maker = &maker;
    ++maker.uses;
    for (const SDPField *line = stream.sdpFieldList; line != nullptr; line = line->next) {
        if (!HasKeys(*line)) continue;
        const int32_t result = maker.table.open(maker.context, line->value, &protection->state);
        if (result == RTSP_NO_MEMORY) return result;
        if (result != RTSP_SUCCESS || protection->state == nullptr) continue;
        opened = std::move(protection);
        return RTSP_SUCCESS;
    }
    return RTSPTAP_BAD_KEYS;
}

// Who sends reports begins anew with its counters, so it must not go on as the same sender.
void SetProtection(RTSPStreamInfo &stream, ProtectionPtr protection) {
    if (protection == nullptr && stream.protection == nullptr) return; // a thread may look at it meanwhile
    if (protection != nullptr) stream.localSsrc = 0;
    CloseProtection(std::exchange(stream.protection, protection.release()));
    if (stream.protection != nullptr) stream.plainSsrc = kNobody;
}

const char *SuiteOf(const RTSPStreamInfo &stream) {
    if (stream.protection == nullptr) return nullptr;
    const RTSPTapPacketProtection &table = stream.protection->maker->table;
    return table.suite != nullptr ? table.suite(stream.protection->state) : "";
}

// ---- packets ----

namespace {

constexpr uint32_t kLeastRtp = 12; // bytes
constexpr uint32_t kLeastRtcp = 8;

// Of a flood of forged packets one is told.
[[gnu::cold]] bool Drop(RTSPStreamInfo &stream, int32_t verdict) {
    if (verdict == RTSPTAP_PACKET_REPLAYED) {
        CountOne(stream.drops.replayed);
        return false;
    }
    CountOne(stream.drops.forged);
    return false;
}

} // namespace

bool UnprotectRtp(RTSPStreamInfo &stream, uint8_t *packet, uint32_t &size) {
    StreamProtection &protection = *stream.protection;
    const uint32_t whole = size;
    const int32_t verdict = protection.maker->table.unprotectRtp(protection.state, packet, &size);
    if (verdict == RTSPTAP_PACKET_GOOD && size >= kLeastRtp && size <= whole) return true;
    if (verdict != RTSPTAP_PACKET_REPLAYED && !std::exchange(protection.told, true))
        PrintEvent("Packets of stream %d are not authentic, and are dropped\n", stream.number);
    return Drop(stream, verdict);
}

bool UnprotectRtcp(RTSPStreamInfo &stream, uint8_t *packet, int32_t &size) {
    const StreamProtection *const protection = stream.protection;
    if (protection == nullptr || size < 1) return true;
    auto left = static_cast<uint32_t>(size);
    const int32_t verdict = protection->maker->table.unprotectRtcp(protection->state, packet, &left);
    if (verdict != RTSPTAP_PACKET_GOOD || left < kLeastRtcp || left > static_cast<uint32_t>(size))
        return Drop(stream, verdict);
    size = static_cast<int32_t>(left);
    return true;
}

bool ProtectRtcp(const RTSPStreamInfo &stream, std::span<uint8_t> room, int32_t &size) {
    const StreamProtection *const protection = stream.protection;
    if (protection == nullptr) return true;
    auto grown = static_cast<uint32_t>(size);
    const auto most = static_cast<uint32_t>(room.size());
    const auto protect = protection->maker->table.protectRtcp;
    if (protect == nullptr || protect(protection->state, room.data(), &grown, most) != RTSP_SUCCESS || grown > most)
        return false;
    size = static_cast<int32_t>(grown);
    return true;
}

} // namespace rtsptap
