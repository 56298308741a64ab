// A connection through TLS as a byte stream: OpenSSL's machine between the socket and the library. What it wants to
// send is kept until the socket takes it, so a writer never meets a half-written record. One lock for reader,
// writer and whoever asks what to wait for; nobody waits while holding it.
#pragma once

#include "rtsptap_extended.h"

#include <openssl/ssl.h>

namespace rtsptap_tls {

// What streams are made by.
struct Context {
    SSL_CTX *ssl = nullptr;
    BIO_METHOD *socket = nullptr; // how they reach theirs
    char serverName[256] = {};    // in place of the URL's host; empty: none
    bool verifies = true;
};

// Null when memory is short.
BIO_METHOD *MakeSocketMethod();

extern const RTSPTapByteStream kTable; // but for `release`

} // namespace rtsptap_tls
