// User name and password that the program gave (RTSPTapSetCredentials), the challenge that they answer, and the
// Authorization value of requests (RFC 7616, RFC 7617). Set on the application's thread; challenges come, and
// values are asked for, on whichever sends a request.
#pragma once

#include "platform/text.h"
#include "rtsp/message/challenge.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <string_view>

namespace rtsptap {

class Dialect;
struct ResponseMsg;

inline constexpr std::size_t kCredentialBytes = 1024; // of user or password, with terminator

// The client embeds one; ForgetCredentials releases what it owns.
struct Credentials {
    // ---- Written by the application thread ----
    std::atomic<bool> areSet{false};
    std::atomic<bool> allowsBasic{false}; // the program does

    // ---- Application thread ----
    char asked[64] = {}; // what the last 401 asked for, for people; empty before the first

    // ---- Guarded by the lock, a leaf but for the host's digest function ----
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    char user[kCredentialBytes] = {};
    char password[kCredentialBytes] = {};
    char *header = nullptr; // owned, free(): what the challenge looks into; null: none is answered
    char *server = nullptr; // owned, free(): URL on the server that sent it
    Challenge challenge;
    bool hashesRawRealm = false; // with its backslashes
    char clientNonce[33] = {};
    uint32_t uses = 0; // of the nonce
};

// Both fit, and are copied. What was answered before is forgotten.
void StoreCredentials(Credentials &credentials, std::string_view user, std::string_view password);
// Wiped from memory.
void ForgetCredentials(Credentials &credentials);

enum class Verdict {
    kAnswer,         // the same request with the value of now may get further
    kRefused,        // the answer was wrong
    kUnknown,        // nothing that is known was asked for
    kBasicNotAllowed // nothing but Basic was
};

// How a 401 was come by.
struct Refusal {
    const ResponseMsg &response;
    const char *server; // URL on it
    bool carriedAnswer; // the request had one
    int answers;        // requests of this exchange that were sent again
    const Dialect &dialect;
};

// Takes the strongest challenge of a 401. One retry of a request is worth while, one more where its nonce is stale,
// or its realm may be hashed in another way.
Verdict TakeChallenge(Credentials &credentials, const Refusal &refusal);

// For `asked`.
void NoteWhatIsAsked(Credentials &credentials, const ResponseMsg &response);

// What a value is asked for.
struct Authorized {
    const char *server; // URL on the one that the request goes to
    const char *method;
    const char *uri;
    const char *body;
};

// Whether a challenge of that server is answered.
bool IsAnswering(Credentials &credentials, const char *server);

// The value of the Authorization header. Null: nothing is answered, another server asked, or memory is short.
HeapText AuthorizationFor(Credentials &credentials, const Authorized &request);

// Frees a text that holds a password, or something made of one.
void WipeText(char *text);

} // namespace rtsptap
