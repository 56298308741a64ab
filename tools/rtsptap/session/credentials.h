// User name and password: where they come from, and how they are asked for.
#pragma once

#include "base/interruption.h"
#include "base/settings.h"
#include "session/url.h"

#include <string>

namespace tool {

struct Credentials {
    std::string user; // empty: none
    std::string password;
};

// The user of the options before that of the URL. The password of the file; of the URL, if the user is its own; of
// RTSPTAP_PASSWORD; or from the terminal, where there is one and a user without a password.
Outcome ReadCredentials(const ServerSettings &settings, const Url &url, Interruption &interruption,
                        Credentials &credentials);

} // namespace tool
