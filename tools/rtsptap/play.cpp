#include "play.h"

#include "reception.h"
#include "url.h"

#include <cstdlib>

namespace tool {
namespace {

constexpr auto kReplyLimit = std::chrono::seconds(25);   // the library waits so long for each reply
constexpr auto kSilenceLimit = std::chrono::seconds(10); // a server that sends nothing for so long has ended

Outcome FindTarget(const PlaySettings &settings, Target &target) {
    Url url;
    if (Outcome refused = ParseUrl(settings.url, url); !refused.IsOk()) return refused;
    target.port = url.port;
    target.path = url.path;
    target.transport = settings.transport;
    target.user = settings.user.empty() ? url.user : settings.user;
    const char *password = std::getenv("RTSPTAP_PASSWORD");
    target.password = url.password.empty() && password != nullptr ? password : url.password;
    return ResolveHost(url.host, target.address);
}

// The one call says only that a step failed. The same steps one by one on a fresh connection tell which and why;
// they can also succeed, since they leave out streams that cannot be received. Not after a time-out: the server has
// had its 25 seconds.
Outcome Open(const Target &target, std::optional<Session> &session) {
    const Clock::time_point begin = Clock::now();
    const int32_t atOnce = session.emplace().PlayAtOnce(target);
    if (atOnce != RTSP_SEND_FAILED) return OutcomeOfCall("connection", atOnce);
    if (Clock::now() - begin >= kReplyLimit) return OutcomeOfCall("connection", RTSP_RESPONSE_TIMEOUT);
    session.reset();
    return session.emplace().PlayStepByStep(target);
}

// Names the streams that nothing can be read from; at least one must be left.
Outcome CheckStreams(const std::vector<Stream> &streams) {
    bool anyReadable = false;
    for (const Stream &stream : streams) {
        anyReadable = anyReadable || stream.isReadable;
        if (stream.isReadable) continue;
        const char *why =
            stream.codecType == 0 ? "its codec is not supported" : "an earlier one has the same codec";
        std::fprintf(stderr, "rtsptap: stream %d (%s) is left out: %s\n", stream.number, stream.codec.c_str(), why);
    }
    if (anyReadable) return {};
    return {ExitCode::kNoSupportedStream, "DESCRIBE: no stream has a codec that can be received"};
}

} // namespace

Outcome OpenSession(const PlaySettings &settings, std::optional<Session> &session) {
    Target target;
    if (Outcome failed = FindTarget(settings, target); !failed.IsOk()) return failed;
    if (Outcome failed = Open(target, session); !failed.IsOk()) return failed;
    Outcome unsupported = CheckStreams(session->Streams());
    if (!unsupported.IsOk()) session->Teardown();
    return unsupported;
}

Outcome Play(const PlaySettings &settings, const LibraryOutput &output, Interruption &interruption) {
    std::optional<Session> session;
    if (Outcome failed = OpenSession(settings, session); !failed.IsOk()) return failed;
    Reception reception(*session, session->Streams());
    const Outcome outcome =
        ReceiveAndReport(reception, {settings.duration, kSilenceLimit}, output.Data(), interruption);
    reception.Stop(); // while media flows: a reader that waits is woken by the next packet only
    session->Teardown();
    return outcome;
}

} // namespace tool
