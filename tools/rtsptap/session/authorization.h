// Answers a server that asks for a password: the strongest way it offers, digests (RFC 7616, RFC 2617) before Basic
// (RFC 7617), which is sent only where there is no digest at all.
#pragma once

#include "base/reply.h"
#include "session/credentials.h"

#include <cstdint>
#include <string>

namespace tool {

class Authorization {
public:
    Authorization() = default;
    explicit Authorization(Credentials credentials) : credentials_(std::move(credentials)) {}

    // Of a 401: whether the same request, with the Value of now, may get further. Not when the password was wrong.
    bool Take(const Reply &reply);

    // Of any other reply to a request that carried it: user and password are good.
    void NoteAccepted() { accepted_ = IsNeeded(); }

    bool IsNeeded() const { return !chosen_.scheme.empty(); }
    std::string Value(const std::string &method, const std::string &uri); // of the Authorization header
    const std::string &Scheme() const { return scheme_; } // "Digest SHA-256"; empty: never asked for

    // What is wrong when a server still says 401.
    std::string Complaint() const;

private:
    std::string DigestValue(const std::string &method, const std::string &uri);

    Credentials credentials_;
    Challenge chosen_;      // the one that is answered; without scheme: none
    std::string scheme_;    // as it is shown
    bool offered_ = false;  // something that can be answered
    bool stale_ = false;    // so the server said last
    bool accepted_ = false; // since the challenge was taken
    bool wasAccepted_ = false;
    uint32_t uses_ = 0; // of the nonce
};

} // namespace tool
