// What lies under RTSP: a table of a program's own, TLS and HTTP tunnels before scripted servers (relay.py), and
// what is refused.
#include "rtp/stream.h"
#include "rtsptap_tls.h"
#include "tests/support/progress.h"
#include "tests/support/session.h"

#include <map>
#include <sys/socket.h>

namespace rtsptap::test {
namespace {

// ---- a table of the program's ----

// Takes all that the socket has and gives seven bytes at a time, so that what is pending is all there ever is;
// writes three at a time, and every other time none.
struct Hoard {
    explicit Hoard(int onSocket) : socket(onSocket) {}
    const int socket;
    std::string bytes = {};
    std::atomic<std::size_t> left{0};
    bool refuses = false;
    static int alive;
};
int Hoard::alive = 0;

Hoard &HoardOf(void *stream) { return *static_cast<Hoard *>(stream); }

const RTSPTapByteStream kHoarding = {
    .recordSize = sizeof(RTSPTapByteStream),
    .open = [](void *, int32_t socket, const char *) -> void * { return ++Hoard::alive, new Hoard(socket); },
    .handshake = nullptr,
    .read = [](void *stream, void *bytes, uint32_t count) -> int32_t {
        Hoard &hoard = HoardOf(stream);
        char room[65536];
        const ssize_t came = hoard.bytes.empty() ? recv(hoard.socket, room, sizeof room, MSG_DONTWAIT) : 0;
        if (came > 0) hoard.bytes.assign(room, static_cast<std::size_t>(came));
        if (hoard.bytes.empty()) return static_cast<int32_t>(came);
        const std::size_t given = hoard.bytes.copy(static_cast<char *>(bytes), std::min(count, 7U));
        hoard.bytes.erase(0, given);
        hoard.left = hoard.bytes.size();
        return static_cast<int32_t>(given);
    },
    .write = [](void *stream, const void *bytes, uint32_t count) -> int32_t {
        Hoard &hoard = HoardOf(stream);
        if (count == 0) return 0;
        hoard.refuses = !hoard.refuses;
        errno = EAGAIN;
        if (hoard.refuses) return -1;
        return static_cast<int32_t>(send(hoard.socket, bytes, std::min(count, 3U), MSG_DONTWAIT | MSG_NOSIGNAL));
    },
    .pending = [](void *stream) { return static_cast<uint32_t>(HoardOf(stream).left); },
    .wanted = nullptr,
    .failure = nullptr,
    .leave = nullptr,
    .close = [](void *stream) { --Hoard::alive, delete &HoardOf(stream); },
    .release = [](void *context) { ++*static_cast<int *>(context); },
};

class ByteStreams : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Transports, ByteStreams, testing::Values(kUdp, kTcp));

TEST_P(ByteStreams, WhatIsPendingIsReadThoughTheSocketIsSilent) {
    const CapturedStdout output;
    int released = 0;
    {
        const bool isTcp = GetParam() == kTcp;
        Script script = StepsTo(CLIENT_PLAYING_STATE, GetParam());
        if (isTcp) script.back().reply = script.back().reply + SendBytes(Frames(1, 40));
        script.push_back({"GET_PARAMETER", Ok()});
        script.push_back({"TEARDOWN", Ok()});
        ScriptedServer server(script);
        Client client(1 << 20, GetParam());
        client.serverPort = server.Port();
        RTSPTapSetOption(client, RTSPTAP_OPTION_KEEP_ALIVE, 3600000); // replies are then read ahead over UDP, too
        EXPECT_EQ(RTSPTapSetByteStream(client, 2, &kHoarding, nullptr), RTSP_INVALID_ARGUMENT);
        EXPECT_EQ(RTSPTapSetByteStream(client, RTSPTAP_STREAM_OF_RTSP, &kHoarding, &released), 0);
        EXPECT_EQ(client.Reach(CLIENT_PLAYING_STATE), 0);
        EXPECT_EQ(RTSPTapSetByteStream(client, RTSPTAP_STREAM_OF_RTSP, nullptr, nullptr), RTSPTAP_TOO_LATE);
        if (isTcp) {
            EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 40), Numbers(1, 40));
        }
        EXPECT_EQ(RTSPTapGetParameter(client, 0, 0, nullptr, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(client.Teardown(), 0);
        EXPECT_EQ(Hoard::alive, 0);
        EXPECT_EQ(released, 0);
    }
    EXPECT_EQ(released, 1);
}

// ---- servers behind a relay ----

// Made once: two days long they are good.
struct CertificateFolder {
    CertificateFolder() {
        char name[] = "/tmp/rtsptap-tls-XXXXXX";
        path = mkdtemp(name);
        ChildProcess process({"sh", PROJECT_DIR "/tests/tls/certificates.sh", path});
        EXPECT_EQ(process.Wait(std::chrono::seconds(60)), 0) << process.Errors();
    }
    ~CertificateFolder() { std::filesystem::remove_all(path); }
    CertificateFolder(CertificateFolder &&) = delete; // nor copied

    std::string path;
};

const std::string &Certificates() {
    static const CertificateFolder folder;
    return folder.path;
}

std::string InCertificates(std::string text) {
    for (std::size_t at; (at = text.find("{c}")) != text.npos;) text.replace(at, 3, Certificates());
    return text;
}

class Relay {
public:
    Relay(uint16_t server, const std::string &arguments) : process_(Command(server, arguments)) {
        port_ = process_.ReadLine(std::chrono::seconds(30));
        EXPECT_NE(port_, "") << process_.Errors();
    }
    std::string Url(const std::string &scheme, const std::string &host = "127.0.0.1") const {
        return scheme + "://" + host + ":" + port_ + "/live";
    }
    std::string Errors() const { return process_.Errors(); }

private:
    static std::vector<std::string> Command(uint16_t server, const std::string &arguments) {
        std::vector<std::string> command = {"python3", PROJECT_DIR "/tests/tls/relay.py", std::to_string(server)};
        std::istringstream words(InCertificates(arguments));
        for (std::string word; words >> word;) command.push_back(word);
        return command;
    }
    ChildProcess process_;
    std::string port_;
};

int32_t UseTls(intptr_t client, RTSPTapTlsOptions options = {}) {
    static const std::string root = Certificates() + "/root.pem";
    options.recordSize = sizeof options;
    if (options.rootFile == nullptr) options.rootFile = root.c_str();
    return RTSPTapUseTls(client, &options);
}

std::string FailureOfStream(intptr_t client) { return TextSet(client, RTSPTAP_OPTION_STREAM_FAILURE); }

struct Way {
    const char *scheme;
    const char *relay;
};
class Through : public testing::TestWithParam<Way> {};
INSTANTIATE_TEST_SUITE_P(Ways, Through,
                         testing::Values(Way{"rtsps", "cert={c}/good.pem"},
                                         Way{"rtsps", "cert={c}/good.pem tls=1.2"},
                                         Way{"rtsps", "cert={c}/good.pem cut=1"}, Way{"rtsph", "http=200"},
                                         Way{"rtsph", "http=200 cut=1"},
                                         Way{"rtspsh", "http=200 cert={c}/good.pem cut=1"}));

// The reply to PLAY, what comes before and behind it, and a reply among frames, leave in one write. With the
// library's threads and calls that wait, and with neither.
TEST_P(Through, ASessionIsPlayedPausedAndTornDown) {
    const CapturedStdout output;
    const bool namesRtsps = std::string(GetParam().scheme) == "rtsps";
    const std::string url = namesRtsps ? " rtsps://127.0.0.1:" : " rtsp://127.0.0.1:";
    Script script = {{"OPTIONS" + url, Ok()}, {"DESCRIBE" + url, WithBody(kDescription)}};
    for (int32_t stream : {1, 2}) script.push_back({"SETUP" + url, SetupReply(stream, kTcp)});
    script.push_back({"PLAY", SendBytes(Frames(1, 3)) + Ok() + SendBytes(Frames(4, 200))});
    script.push_back({"PAUSE", SendBytes(Frames(201, 201)) + Ok() + SendBytes(Frames(202, 202))});
    script.push_back({"TEARDOWN", Ok()});
    for (const bool waits : {true, false}) {
        ScriptedServer server(script);
        const Relay relay(server.Port(), GetParam().relay);
        const std::string name = relay.Url(GetParam().scheme);
        const std::size_t descriptors = CountDescriptors();
        Client client;
        EXPECT_EQ(UseTls(client), 0);
        EXPECT_EQ(RTSPTapSetOption(client, RTSPTAP_OPTION_THREADS, waits ? 1 : 0), 0);
        ASSERT_EQ(waits ? RTSPTapOpen(client, name.c_str()) : Progressed(client, RTSPTapBeginOpen, name.c_str()), 0)
            << FailureOfStream(client) << relay.Errors();
        EXPECT_EQ(waits ? RTSPTapSetup(client, 0) : Progressed(client, RTSPTapBeginSetup, 0), 0);
        EXPECT_EQ(NumberSet(client, RTSPTAP_OPTION_TRANSPORT_USED), RTSPTAP_TRANSPORT_TCP);
        EXPECT_EQ(waits ? client.Play() : Progressed(client, RTSPTapBeginPlay, nullptr, nullptr), 0);
        EXPECT_EQ(TakeSequenceNumbers(client, kVideo, 200), Numbers(1, 200));
        EXPECT_EQ(waits ? client.Pause() : Progressed(client, RTSPTapBeginPause), 0);
        EXPECT_EQ(waits ? client.Teardown() : Progressed(client, RTSPTapBeginTeardown), 0);
        EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors; }));
        EXPECT_EQ(FailureOfStream(client), "");
    }
}

TEST(Tls, WhoIsRefusedAndWhy) {
    const CapturedStdout output;
    const std::string self = Certificates() + "/self.crt", good = Certificates() + "/good.crt";
    const std::string viewer = Certificates() + "/viewer.pem";
    RTSPTapTlsOptions none = {}, anyone = {}, own = {}, leaf = {}, named = {}, withOwn = {}, modern = {};
    anyone.isUnverified = 1;
    own.rootFile = self.c_str();
    leaf.rootFile = good.c_str();
    named.serverName = "camera.example";
    withOwn.certificateFile = viewer.c_str();
    modern.leastVersion = 13;
    const std::map<std::string, RTSPTapTlsOptions *> options = {
        {"none", &none},   {"anyone", &anyone},    {"own", &own},      {"leaf", &leaf},
        {"named", &named}, {"with-own", &withOwn}, {"modern", &modern}};
    for (const auto &row : Rows("tls_refusals.txt")) {
        SCOPED_TRACE(row[0]);
        int32_t result = 1;
        std::string kind, scheme, host, way;
        std::getline(std::istringstream(row[0]) >> result >> kind >> scheme >> host, way);
        const std::string failure = row.at(1) == "-" ? "" : row[1];
        const bool isTaken = result == 0;
        ScriptedServer server(isTaken ? Script{{"OPTIONS", Ok()}, {"DESCRIBE", WithBody(kDescription)}} : Script{});
        const Relay relay(server.Port(), way);
        const std::size_t descriptors = CountDescriptors();
        Client client;
        RTSPTapSetOption(client, RTSPTAP_OPTION_REPLY_LIMIT, result == RTSPTAP_HANDSHAKE_TIMEOUT ? 200 : 20000);
        EXPECT_EQ(UseTls(client, *options.at(kind)), 0);
        EXPECT_EQ(RTSPTapOpen(client, relay.Url(scheme, host).c_str()), result);
        EXPECT_TRUE(FailureOfStream(client).find(failure) != std::string::npos) << FailureOfStream(client);
        EXPECT_EQ(FailureOfStream(client).empty(), failure.empty() && result != RTSPTAP_HANDSHAKE_FAILED);
        EXPECT_EQ(client.Destroy(), 0);
        const bool isAtServer = way.find("http=") != way.npos; // in this process, too
        EXPECT_TRUE(isAtServer || Eventually([&] { return CountDescriptors() == descriptors; }));
    }
}

TEST(Tls, WhatCannotBeUsedIsSaidAndChangesNothing) {
    const CapturedStdout output;
    const std::string good = Certificates() + "/good.pem", root = Certificates() + "/root.pem";
    const std::string other = Certificates() + "/other.pem";
    Client client;
    EXPECT_EQ(RTSPTapOpen(client, "rtsps://127.0.0.1:1/"), RTSPTAP_NO_TLS);
    RTSPTapTlsOptions unsized = {}, old = {}, noFile = {}, noDirectory = {}, noKey = {}, otherKey = {};
    EXPECT_EQ(RTSPTapUseTls(client, &unsized), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(UseTls(0), RTSP_INVALID_ARGUMENT);
    old.leastVersion = 11;
    EXPECT_EQ(UseTls(client, old), RTSPTAP_OUT_OF_RANGE);
    noFile.rootFile = "/nowhere";
    EXPECT_EQ(UseTls(client, noFile), RTSPTAP_BAD_TLS_ROOTS);
    noDirectory.rootDirectory = "/nowhere";
    EXPECT_EQ(UseTls(client, noDirectory), RTSPTAP_BAD_TLS_ROOTS);
    noKey.certificateFile = root.c_str();
    EXPECT_EQ(UseTls(client, noKey), RTSPTAP_BAD_TLS_CERTIFICATE);
    otherKey.certificateFile = good.c_str();
    otherKey.keyFile = other.c_str();
    EXPECT_EQ(UseTls(client, otherKey), RTSPTAP_BAD_TLS_CERTIFICATE);
    EXPECT_EQ(RTSPTapOpen(client, "rtsps://127.0.0.1:1/"), RTSPTAP_NO_TLS);
    EXPECT_EQ(RTSPTapUseTls(client, nullptr), 0);
    EXPECT_EQ(RTSPTapOpen(client, "rtsps://127.0.0.1:1/"), RTSP_CONNECT_FAILED);
}

TEST(Tls, APasswordThatWentThroughItGoesNowhereInTheClear) {
    const CapturedStdout output;
    ScriptedServer server({{"OPTIONS", Ok()},
                           {"DESCRIBE", Challenge("n1")},
                           {{"DESCRIBE", "Digest username=\"me\""}, Status(302, "Found", "Location: {base}/b")},
                           {{"OPTIONS rtsp://", "!Authorization"}, Ok()},
                           {{"DESCRIBE rtsp://", "!Authorization"}, Challenge("n1")}});
    const Relay relay(server.Port(), "cert={c}/good.pem");
    Client client;
    EXPECT_EQ(UseTls(client), 0);
    RTSPTapSetCredentials(client, "me", "secret");
    EXPECT_EQ(RTSPTapOpen(client, relay.Url("rtsps").c_str()), RTSP_UNAUTHORIZED);
}

} // namespace
} // namespace rtsptap::test
