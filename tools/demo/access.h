// Digest authentication (RFC 2617, 3.2.2): who may see the clip.
#pragma once

#include "request.h"

namespace demo {

struct Account {
    std::string user;
    std::string password;
};

enum class Access { kGranted, kDenied, kStale /* right, but for a nonce that is not ours */ };

// Whether the request's Authorization header is the account's answer to the nonce.
Access CheckAccess(const Request &request, const Account &account, const std::string &nonce);

// The header line of a 401 reply, with its line end.
std::string Challenge(const std::string &nonce, bool isStale);

// As many random hexadecimal digits as two times the bytes.
std::string RandomHex(std::size_t bytes);

} // namespace demo
