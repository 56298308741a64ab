// The requests that keep a session alive (RFC 2326, 12.37). They are sent by whoever serves the connection, while
// the application may be in an exchange of its own: what they say is a copy of what the client says of itself.
#pragma once

#include "platform/text.h"
#include "rtsp/message/authentication.h"
#include "rtsptap.h"

#include <cstdint>
#include <pthread.h>
#include <string_view>

namespace rtsptap {

struct Exchange;
struct RTSPClient;

// Owned, free(); a plain pointer, because the client has standard layout with every compiler.
struct KeptText {
    KeptText() = default;
    ~KeptText() { FreeDeleter{}(text); }
    KeptText(const KeptText &) = delete;
    KeptText &operator=(const KeptText &) = delete;

    char *text = nullptr;
};

struct KeepAlive {
    uint32_t method = RTSP_OPTIONS; // that the server has said it takes; application thread

    // ---- Guarded by the lock ----
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // a leaf, but for the printers
    bool isReady = false;                             // there is a session, and the rest says which
    uint32_t nextMethod = RTSP_OPTIONS;
    KeptText serverUrl; // that the client is connected to
    KeptText requestUrl;
    KeptText sessionId;
    KeptText userAgent;
    Authentication authentication;
    bool isChallenged = false; // the last reply was a challenge: it has been answered once
};

// Lets the client's connection be tended. When the client is made.
void PrepareKeepAlive(RTSPClient &client);

// Behind every exchange: from here on keep-alives say what it has led to.
void RenewKeepAlive(RTSPClient &client);

// A step of OPTIONS: what the server's Public header (RFC 2326, 12.28) lists.
int32_t ChooseKeepAlive(Exchange &exchange);

// The timeout in a Session header, in seconds; 0 when it has none.
int32_t SessionTimeout(std::string_view value);

} // namespace rtsptap
