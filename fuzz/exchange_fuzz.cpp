// A reply as any server may send it, to each of the six methods over UDP and TCP: the result, the failure's text
// and the next state are what the rules below say. Input: a byte of settings, the reply. What is read
// among frames is left to the interleaved target.
#include "fuzz/fuzz_target.h"
#include "tests/support/described_client.h"
#include "tests/support/methods.h"
#include "tests/support/scripted_server.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace rtsptap;
using fuzz::Require;

namespace {

// ---- What a method returns for the bytes of a reply, worked out from the rules that the manual gives: a second
// reading of them, which shares no code with the library. ----

struct Verdict {
    int32_t code = RTSP_SUCCESS;
    std::string text = {}; // of a failure, behind "EXIT : FUNCTION"; empty: not compared
    bool moves = false;    // the client goes to the method's next state, even if it fails
};

constexpr char kNoReply[] = " : No RTSP response received from server \n";

constexpr std::size_t kOneReceive = 33792;

struct IgnoringCase {
    bool operator()(const std::string &a, const std::string &b) const {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};

struct Parsed {
    int status = 0;
    std::map<std::string, std::string, IgnoringCase> headers; // the first of each name

    std::optional<std::string> Value(const std::string &name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? std::nullopt : std::optional(found->second);
    }
};

int Number(const std::string &text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

// The lines of the text, up to its first NUL, without empty ones.
std::string NextLine(std::string &text) {
    text.erase(0, text.find_first_not_of("\r\n"));
    const std::string line = text.substr(0, text.find_first_of("\r\n"));
    text.erase(0, line.size());
    return line;
}

std::optional<Parsed> Parse(std::string text) {
    text = text.c_str();
    const std::string first = NextLine(text);
    const std::size_t space = first.find(' ');
    if (space > 8 || first.find(' ', space + 1) == std::string::npos) return std::nullopt;
    Parsed parsed;
    parsed.status = Number(first.substr(space + 1));
    if (parsed.status == 0) return std::nullopt;
    int slots = 0;
    for (std::string line = NextLine(text); !line.empty() && slots < 32; line = NextLine(text)) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        ++slots;
        const std::string name = line.substr(0, colon);
        const std::string value = colon + 2 < line.size() ? line.substr(colon + 2) : "";
        if (name == "CSeq" && Number(value) == 0) return std::nullopt;
        parsed.headers.emplace(name, value);
    }
    return parsed;
}

std::string SessionIn(const std::string &value) {
    const std::size_t begin = value.find_first_not_of(';');
    return begin == std::string::npos ? value : value.substr(begin, value.find(';', begin) - begin);
}

// A description whose lines are good, as far as it came.
Verdict AfterDescribe(const Parsed &parsed, const std::string &first, const std::string &more) {
    const std::size_t begin = first.find("v=0");
    std::string description = begin == std::string::npos ? "" : first.substr(begin);
    if (const auto length = parsed.Value("Content-Length")) {
        const int number = Number(*length);
        if (number < 1)
            return {
                RTSP_BAD_NUMBER,
                " :Problem in converting Ascii to Integer value of Content-Length invalid Content Length value\n"};
        if (static_cast<std::size_t>(number) > description.size()) {
            if (more.empty()) return {RTSP_NO_RESPONSE, kNoReply};
            description += more;
        }
    }
    if (NextLine(description).starts_with('v')) return {};
    return {RTSP_BAD_RESPONSE, " : Problem occured while parsing SDP data \n"};
}

Verdict AfterSetup(const Parsed &parsed) {
    if (SessionIn(parsed.Value("Session").value_or("")).size() > 32)
        return {RTSP_BAD_RESPONSE, " : Too long SessionID received \n"};
    const std::string transport = parsed.Value("Transport").value_or("");
    const std::size_t ports = transport.find("server_port");
    if (ports == std::string::npos) return {};
    const std::size_t dash = transport.find('-', ports);
    if (dash != std::string::npos && Number(transport.substr(dash + 1)) % 65536 != 0) return {};
    return {RTSP_BAD_NUMBER, " :Problem in converting Ascii to Integer value of server_port\n"};
}

// The session's id is 12345678, and the connection closes behind the bytes.
Verdict Judge(const std::string &method, const std::string &bytes) {
    const Verdict unreadable{RTSP_BAD_RESPONSE, " :Problem in parsing Response Message received from server \n"};
    if (bytes.empty()) return {RTSP_NO_RESPONSE, kNoReply};
    const std::string text = bytes.substr(0, kOneReceive);
    const std::optional<Parsed> parsed = Parse(text);
    if (!parsed) return unreadable;
    const bool asksForPassword = method == "OPTIONS" || method == "DESCRIBE";
    const std::string session = SessionIn(parsed->Value("Session").value_or("12345678"));
    if (!asksForPassword && method != "SETUP" && session != "12345678")
        return {RTSP_INVALID_SESSION, " : Invalid Session Id received from server \n"};
    if (parsed->status >= 500) return {RTSP_SERVER_ERROR, " :Server Error Received from Server\n"};
    if (parsed->status == 401 && asksForPassword) return {RTSP_UNAUTHORIZED};
    if (parsed->status >= 400) return {RTSP_CLIENT_ERROR, " :Client Error Received from Server\n"};
    if (parsed->status >= 300) return {RTSP_REDIRECTED, " :Redirectional Error Received from Server\n"};
    if (parsed->status != 200) return {};
    Verdict verdict;
    if (method == "DESCRIBE") verdict = AfterDescribe(*parsed, text, bytes.substr(text.size()));
    if (method == "SETUP") verdict = AfterSetup(*parsed);
    verdict.moves = true;
    return verdict;
}

// ---- The library's answer ----

// What the library has printed since the last time.
std::string Printed() {
    static const int file = dup2(memfd_create("printed", 0), STDOUT_FILENO);
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_CUR)), '\0');
    Require(pread(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    Require(ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0);
    return text;
}

// The rules say nothing about groups, and of descriptions only that good lines without a zero are good.
bool IsJudged(const test::Method &method, std::string_view reply, const Verdict &verdict) {
    if (method.from == CLIENT_DESCRIBE_SENT_STATE) return reply.find("destination") == reply.npos;
    if (method.from != CLIENT_OPTIONS_SENT_STATE || !verdict.moves) return true;
    const std::string_view body = reply.substr(std::min(reply.find("v=0"), reply.size()));
    return reply.find('\0') == reply.npos &&
           (body == test::kDescription ||
            (verdict.code == RTSP_NO_RESPONSE && std::string_view(test::kDescription).starts_with(body)));
}

void CheckSetup(const RTSPClient &client, const RTSPStreamInfo &stream, int32_t result) {
    Require(result <= 0 && (result == 0 || stream.rtpSocket == -1));
    Require(client.media.dataProto == DATA_PROTO_TCP || result != 0 ||
            (stream.rtpSocket >= 0 && stream.rtcpSocket >= 0));
}

// The rules above tell what comes of a reply in the exact dialect.
void Converse(const uint8_t *data, std::size_t size, int32_t dialect) {
    fuzz::Input input(data, size);
    const uint8_t settings = input.U8();
    const std::string_view reply = input.Rest();
    const test::Method &method = test::kMethods[((settings >> 4) + 2) % std::size(test::kMethods)];
    const bool isTcp = (settings & 1) && std::max(method.from, method.next) < CLIENT_PLAYING_STATE;
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    {
        test::DescribedClient described("v=0\r\nm=video 0 RTP/AVP 96\r\nm=audio 0 RTP/AVP 0\r\n");
        RTSPClient &client = described.client;
        client.media.connection.socket = ends[0];
        client.media.dialect.Choose(dialect);
        client.media.dataProto = isTcp ? DATA_PROTO_TCP : DATA_PROTO_UDP;
        client.media.state = method.from;
        CopyText(client.sessionId, "12345678");
        if (!reply.empty()) Require(send(ends[1], reply.data(), reply.size(), 0) > 0);
        shutdown(ends[1], SHUT_WR);

        char copy[200];
        int32_t copySize = settings & 2 ? sizeof copy : 0;
        Printed();
        const int32_t result = method.call(described.handle, 0, copy, settings & 8 ? &copySize : nullptr);
        const std::string printed = Printed();
        const auto &[code, text, moves] = Judge(method.name, std::string(reply));
        if (dialect == RTSPTAP_DIALECT_EXACT && IsJudged(method, reply, {code, text, moves}) &&
            result != RTSP_SMALL_BUFFER) {
            Require(result == code);
            Require(text.empty() || printed.find("EXIT : RTSPClientSend" + std::string(method.word) + "Request" +
                                                 text) != printed.npos);
            Require(client.media.state == (moves ? method.next : method.from));
        }
        if (method.from == CLIENT_DESCRIBE_SENT_STATE) CheckSetup(client, described.Stream(1), result);
        Require(client.requestMsg == nullptr && client.responseMsg == nullptr &&
                !client.media.connection.awaitingReply);
    }
    close(ends[1]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    for (const int32_t dialect : {RTSPTAP_DIALECT_EXACT, RTSPTAP_DIALECT_TOLERANT}) Converse(data, size, dialect);
    return 0;
}
