// Reads a session description (RFC 4566) into lines and stream records. Application thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace rtsptap {

struct SDPField {
    char name[2] = {};        // type letter and terminator
    char *value = nullptr;    // owned, free(): the line from its third character on
    SDPField *next = nullptr; // next line of the same list
};

// Frees every line of the list and clears the head.
void ReleaseSdpFields(SDPField *&head);

struct RTSPClient;

// 0 on success, also when a malformed attribute ends the reading early; RTSP_FAILURE, RTSP_BAD_NUMBER,
// RTSP_MUTEX_FAILED or RTSP_NO_MEMORY otherwise. Streams made so far stay, whatever the result.
int32_t ParseReceivedSDP(RTSPClient *client);

} // namespace rtsptap
