// RTSPTapUseSrtp: the table of functions that libsrtp is behind.
#include "rtsptap_srtp.h"
#include "srtp/session.h"

#include <cstdlib>
#include <new>

using namespace rtsptap_srtp;

namespace {

Protected &Of(void *stream) { return *static_cast<Protected *>(stream); }

void Close(void *stream) {
    End(Of(stream));
    std::free(stream);
}

int32_t Open(void * /*context*/, const char *attribute, void **stream) {
    void *const memory = std::malloc(sizeof(Protected));
    if (memory == nullptr) return RTSP_NO_MEMORY;
    auto *const made = new (memory) Protected;
    if (ReadKeys(attribute, made->keys) && Begin(*made)) {
        *stream = made;
        return RTSP_SUCCESS;
    }
    Close(made);
    return RTSPTAP_BAD_KEYS;
}

constexpr RTSPTapPacketProtection kTable = {
    .recordSize = sizeof(RTSPTapPacketProtection),
    .open = Open,
    .unprotectRtp = [](void *stream, uint8_t *packet,
                       uint32_t *size) { return UnprotectRtp(Of(stream), packet, *size); },
    .unprotectRtcp = [](void *stream, uint8_t *packet,
                        uint32_t *size) { return UnprotectRtcp(Of(stream), packet, *size); },
    .protectRtcp = [](void *stream, uint8_t *packet, uint32_t *size, uint32_t room) -> int32_t {
        return ProtectRtcp(Of(stream), packet, *size, room) ? RTSP_SUCCESS : RTSP_FAILURE;
    },
    .suite = [](void *stream) { return Of(stream).keys.suite->name; },
    .close = Close,
    .release = nullptr,
};

} // namespace

int32_t RTSPTapUseSrtp(intptr_t clientHandle) { return RTSPTapSetPacketProtection(clientHandle, &kTable, nullptr); }
