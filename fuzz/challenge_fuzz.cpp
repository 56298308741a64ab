// A hostile WWW-Authenticate value: cut up, stored and sent back, as the base does and for credentials of the
// program.
#include "fuzz/fuzz_target.h"
#include "rtsp/client/client.h"
#include "rtsp/message/response.h"

#include <cstring>

using namespace rtsptap;

// A host's own function: what it is given ends where it should, and it fills all that it may.
int GenerateDigestResponse(const char *nonce, const char *, const char *username, const char *realm,
                           const char *password, const char *, const char *, const char *method, const char *,
                           const char *, char *response) {
    fuzz::Require(std::strlen(nonce) < 128 && std::strlen(realm) < 256 && *username == '\0' && *password == '\0');
    fuzz::Require(std::string_view(method) == "OPTIONS");
    std::memset(response, 'f', 256);
    return 0;
}

int RTSPTapComputeDigest(const RTSPTapDigest *of, char *response, uint32_t size) {
    fuzz::Require(of->recordSize == sizeof *of && std::strcmp(of->password, "p") == 0);
    for (const char *const text : {of->algorithm, of->realm, of->nonce, of->nonceCount, of->qop})
        fuzz::Require(std::strpbrk(text, "\r\n") == nullptr);
    std::memset(response, 'f', size);
    return 0;
}

namespace {

// One line, in which every quote that is opened is closed: nothing of the challenge gets out of its place.
void RequireWellFormed(std::string_view value) {
    bool isQuoted = false;
    for (std::size_t at = 0; at < value.size(); ++at) {
        fuzz::Require(value[at] != '\r' && value[at] != '\n');
        if (isQuoted && value[at] == '\\')
            ++at;
        else if (value[at] == '"')
            isQuoted = !isQuoted;
    }
    fuzz::Require(!isQuoted);
}

void AnswerByItself(const ResponseMsg &response) {
    constexpr char kUrl[] = "rtsp://127.0.0.1:554/live";
    Credentials credentials;
    credentials.allowsBasic = true;
    StoreCredentials(credentials, "u\"\\", "p");
    NoteWhatIsAsked(credentials, response);
    fuzz::Require(!HasControlCharacter(credentials.asked));
    Dialect tolerant;
    tolerant.Choose(RTSPTAP_DIALECT_TOLERANT);
    for (int answers = 0;
         TakeChallenge(credentials, {response, kUrl, answers > 0, answers, tolerant}) == Verdict::kAnswer;
         ++answers) {
        fuzz::Require(answers < 2 && IsAnswering(credentials, kUrl));
        const HeapText value = AuthorizationFor(credentials, {kUrl, "PLAY", kUrl, ""});
        RequireWellFormed(value.get());
        fuzz::Require(AuthorizationFor(credentials, {kUrl, "PLAY", "rtsp://127.0.0.1/live/x@y:1/", ""}) != nullptr);
        fuzz::Require(AuthorizationFor(credentials, {kUrl, "PLAY", "rtsp://127.0.0.1@evil/", ""}) == nullptr);
    }
    ForgetCredentials(credentials);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const ResponseMsgPtr response(new ResponseMsg{});
    response->headers[0].headerName = DuplicateText("WWW-Authenticate").release();
    response->headers[0].headerValue = DuplicateText(fuzz::TextOf(data, size)).release();
    response->headerCount = 1;

    AnswerByItself(*response);
    Authentication is;
    StoreChallenge(is, *response);
    fuzz::Require((is.required != 0) == (is.type[0] != '\0'));
    const HeapText value(GenerateRTSPAuthenticationRequest(is, "rtsp://127.0.0.1:554/live", 0));
    const char *const tail = std::strstr(value.get(), "\", uri=\"rtsp://127.0.0.1:554/live\", response=\"");
    fuzz::Require(tail != nullptr && std::string_view(tail).ends_with('"'));
    return 0;
}
