// What a WWW-Authenticate header asks for (RFC 7616, 3.3; RFC 7235, 4.1): read, and compared with what can be
// answered. Pure, any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

// One challenge. The texts are views into the header; of quoted ones what stands between the quotes, escapes as
// they came. What it leaves out has no data().
struct Challenge {
    std::string_view scheme;
    std::string_view realm;
    std::string_view nonce;
    std::string_view opaque;
    std::string_view algorithm;
    std::string_view qop;
    std::string_view stale;
    bool isBroken = false; // a quote is never closed
};

// Takes the next challenge off the front of a header's value; there may be several. False: none is left.
bool NextChallenge(std::string_view &value, Challenge &challenge);

bool IsStale(const Challenge &challenge);

// "auth" or, where only that is offered, "auth-int"; empty where the challenge has no qop. Null data(): others
// only.
std::string_view ChooseQuality(const Challenge &challenge);

bool IsForSession(const Challenge &challenge); // an algorithm whose password enters it with the nonces

// Which challenges can be answered.
struct Abilities {
    bool hasDigests = false;  // all of them, not only MD5 of RFC 2069
    bool allowsBasic = false; // the program does, and no digest is offered
};

// 0: cannot be answered; higher is stronger. Digests of unusable texts cannot: ours repeats them.
int StrengthOf(const Challenge &challenge, const Abilities &abilities);

// A quoted text's meaning: \" and \\ are one character each. Anything else behind a backslash stays, with it:
// devices name domains so ("CAM\admin"). `text` has room for all of `quoted` and a terminator.
void Unescape(std::string_view quoted, char *text);
// The way back; `quoted` has room for twice as much and a terminator.
void Escape(std::string_view text, char *quoted);

} // namespace rtsptap
