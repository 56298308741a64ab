#include "session.h"

#include "transport.h"

#include <algorithm>
#include <utility>

namespace demo {
namespace {

constexpr const char *kAllow = "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, GET_PARAMETER, TEARDOWN";

struct Status {
    int code;
    const char *reason;
};
constexpr Status kStatuses[] = {
    {200, "OK"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {413, "Request Entity Too Large"},
    {451, "Parameter Not Understood"},
    {454, "Session Not Found"},
    {455, "Method Not Valid in This State"},
    {457, "Invalid Range"},
    {459, "Aggregate Operation Not Allowed"},
    {461, "Unsupported Transport"},
    {501, "Not Implemented"},
    {505, "RTSP Version Not Supported"},
    {551, "Option Not Supported"},
};

struct Reply {
    int status = 200;
    std::string headers = {}; // whole lines
    std::string body = {};
};

// One request on its way to its reply.
struct Exchange {
    const Request &request;
    const Offer &offer;
    Connection &connection;
    int64_t nowUs;
    std::string base = {}; // URL of the clip
    int stream = -1;       // that the URL names; -1: all of them
};

std::string Written(const Reply &reply, std::string_view cseq) {
    const auto status = std::find_if(std::begin(kStatuses), std::end(kStatuses),
                                     [&reply](const Status &row) { return row.code == reply.status; });
    std::string text = "RTSP/1.0 " + std::to_string(status->code) + " " + status->reason + "\r\n";
    if (!cseq.empty()) text += "CSeq: " + std::string(cseq) + "\r\n";
    text += "Server: rtsptap demo\r\n" + reply.headers;
    if (!reply.body.empty()) text += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    return text + "\r\n" + reply.body;
}

std::string StreamUrl(const Exchange &exchange, std::size_t stream) {
    return exchange.base + "/stream=" + std::to_string(stream);
}

// rtsp://ANYTHING/demo, the same with a slash, or with /stream=NUMBER
bool ReadUrl(Exchange &exchange) {
    std::string_view url = exchange.request.url;
    constexpr std::string_view kScheme = "rtsp://";
    if (!IsSame(url.substr(0, kScheme.size()), kScheme)) return false;
    const std::size_t path = std::min(url.find('/', kScheme.size()), url.size());
    exchange.base = std::string(url.substr(0, path)) + "/demo";
    url.remove_prefix(path);
    if (url == "/demo" || url == "/demo/") return true;
    for (std::size_t i = 0; i < exchange.offer.tracks.size(); ++i)
        if (url == "/demo/stream=" + std::to_string(i)) return exchange.stream = static_cast<int>(i), true;
    return false;
}

Reply Options(Exchange &) { return {200, std::string("Public: ") + kAllow + "\r\n"}; }

Reply Describe(Exchange &exchange) {
    const std::string_view accept = exchange.request.Header("Accept");
    const auto accepts = [accept](const char *type) { return accept.find(type) != std::string_view::npos; };
    if (!accept.empty() && !accepts("application/sdp") && !accepts("application/*") && !accepts("*/*"))
        return {406};
    std::string sdp = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=rtsptap demo\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\n"
                      "a=control:*\r\na=range:npt=now-\r\n";
    for (std::size_t i = 0; i < exchange.offer.tracks.size(); ++i) {
        const Track &track = exchange.offer.tracks[i];
        sdp += "m=" + std::string(track.media) + " 0 RTP/AVP " + std::to_string(track.payloadType) + "\r\n" +
               track.description + "a=control:stream=" + std::to_string(i) + "\r\n";
    }
    return {200, "Content-Type: application/sdp\r\nContent-Base: " + exchange.base + "/\r\n", sdp};
}

RtpSource NewSource() {
    RtpSource source;
    const auto random = [](std::size_t bytes) { return std::stoul(RandomHex(bytes), nullptr, 16); };
    source.ssrc = static_cast<uint32_t>(random(4));
    source.firstTime = static_cast<uint32_t>(random(4));
    source.sequence = static_cast<uint16_t>(random(2));
    return source;
}

Reply Setup(Exchange &exchange) {
    const auto &[request, offer, connection, nowUs, base, number] = exchange;
    const bool named = !request.Header("Session").empty();
    if (number < 0) return {459};
    if (request.Header("Transport").empty()) return {400};
    if (connection.session && !named) return {455}; // one session for one connection
    Session session = connection.session ? *connection.session : Session{RandomHex(8), -1, {}};
    session.streams.resize(offer.tracks.size());
    Stream &stream = session.streams[static_cast<std::size_t>(number)];
    if (stream.isPlaying) return {455};
    stream = {};
    const std::string transport = ChooseTransport(request.Header("Transport"), {!offer.tcpOnly, !offer.udpOnly},
                                                  connection.peer, session, stream);
    if (transport.empty()) return {461};
    stream.isSetUp = true;
    stream.source = NewSource();
    connection.session = session;
    const int port = offer.ports[static_cast<std::size_t>(number)];
    char rest[96];
    std::snprintf(rest, sizeof rest, "server_port=%d-%d;ssrc=%08X;mode=\"PLAY\"", port, port + 1,
                  stream.source.ssrc);
    const std::string_view shown = rest;
    return {200, "Transport: " + transport +
                     std::string(stream.channel < 0 ? shown : shown.substr(shown.find("ssrc"))) +
                     "\r\nSession: " + session.id + ";timeout=" + std::to_string(offer.timeoutSeconds) + "\r\n"};
}

// Those streams of the session that the request is about.
std::vector<std::size_t> NamedStreams(const Exchange &exchange) {
    std::vector<std::size_t> named;
    const std::vector<Stream> &streams = exchange.connection.session->streams;
    for (std::size_t i = 0; i < streams.size(); ++i)
        if (streams[i].isSetUp && (exchange.stream < 0 || exchange.stream == static_cast<int>(i)))
            named.push_back(i);
    return named;
}

Reply Play(Exchange &exchange) {
    const std::string_view range = exchange.request.Header("Range");
    if (!range.empty() && !range.starts_with("npt=")) return {457};
    Session &session = *exchange.connection.session;
    if (NamedStreams(exchange).empty()) return {455};
    if (session.beganUs < 0) session.beganUs = exchange.nowUs;
    const int64_t elapsedUs = exchange.nowUs - session.beganUs;
    std::string info;
    for (const std::size_t i : NamedStreams(exchange)) {
        const Track &track = exchange.offer.tracks[i];
        Stream &stream = session.streams[i];
        if (!stream.isPlaying) Join(track, stream, elapsedUs);
        stream.isPlaying = true;
        stream.reportUs = exchange.nowUs + exchange.offer.firstReportUs;
        info += (info.empty() ? "url=" : ",url=") + StreamUrl(exchange, i) +
                ";seq=" + std::to_string(stream.source.sequence) + ";rtptime=" +
                std::to_string(static_cast<uint32_t>(stream.source.firstTime +
                                                     static_cast<uint32_t>(elapsedUs * track.clockHz / 1000000)));
    }
    return {200, "Session: " + session.id + "\r\nRange: npt=now-\r\n" +
                     (exchange.offer.noRtpInfo ? "" : "RTP-Info: " + info + "\r\n")};
}

Reply Pause(Exchange &exchange) {
    Session &session = *exchange.connection.session;
    bool wasPlaying = false;
    for (const std::size_t i : NamedStreams(exchange))
        wasPlaying = std::exchange(session.streams[i].isPlaying, false) || wasPlaying;
    if (!wasPlaying) return {455};
    return {200, "Session: " + session.id + "\r\n"};
}

Reply GetParameter(Exchange &exchange) { return {exchange.request.bodyBytes > 0 ? 451 : 200}; }

Reply Teardown(Exchange &exchange) {
    std::optional<Session> &session = exchange.connection.session;
    if (NamedStreams(exchange).empty()) return {455};
    for (const std::size_t i : NamedStreams(exchange)) session->streams[i] = {};
    const auto isSetUp = [](const Stream &stream) { return stream.isSetUp; };
    if (std::none_of(session->streams.begin(), session->streams.end(), isSetUp)) session.reset();
    return {};
}

constexpr struct Method {
    const char *name;
    Reply (*answer)(Exchange &);
    bool needsAccess;
    bool needsSession;
} kMethods[] = {
    {"OPTIONS", Options, false, false}, {"DESCRIBE", Describe, true, false},
    {"SETUP", Setup, true, false},      {"PLAY", Play, true, true},
    {"PAUSE", Pause, true, true},       {"GET_PARAMETER", GetParameter, true, false},
    {"TEARDOWN", Teardown, true, true},
};
constexpr const char *kOthers[] = {"ANNOUNCE", "RECORD", "REDIRECT", "SET_PARAMETER"};

Reply Judge(Exchange &exchange) {
    const auto &[request, offer, connection, nowUs, base, stream] = exchange;
    const auto isMeant = [&exchange](const Method &method) { return exchange.request.method == method.name; };
    const Method *method = std::find_if(std::begin(kMethods), std::end(kMethods), isMeant);
    if (NumberOf(request.Header("CSeq"), INT32_MAX) < 0) return {400};
    if (request.version != "RTSP/1.0") return {505};
    if (std::count(std::begin(kOthers), std::end(kOthers), request.method) > 0)
        return {405, std::string("Allow: ") + kAllow + "\r\n"};
    if (method == std::end(kMethods)) return {501};
    if (offer.account && method->needsAccess) {
        const Access access = CheckAccess(request, *offer.account, connection.nonce);
        if (access != Access::kGranted) return {401, Challenge(connection.nonce, access == Access::kStale)};
    }
    if (const std::string_view option = request.Header("Require"); !option.empty())
        return {551, "Unsupported: " + std::string(option) + "\r\n"};
    if (!ReadUrl(exchange) && request.method != "OPTIONS") return {404};
    std::string_view id = request.Header("Session");
    const bool isOurs = connection.session && NextPart(id, ';') == connection.session->id;
    if (method->needsSession ? !isOurs : !request.Header("Session").empty() && !isOurs) return {454};
    return method->answer(exchange);
}

} // namespace

std::string Answer(const Request &request, const Offer &offer, Connection &connection, int64_t nowUs) {
    Exchange exchange{request, offer, connection, nowUs};
    const Reply reply = Judge(exchange);
    const std::string_view cseq = request.Header("CSeq");
    return Written(reply, NumberOf(cseq, INT32_MAX) < 0 ? std::string_view() : cseq);
}

std::string AnswerUnreadable(Taken taken) { return Written({taken == Taken::kTooLong ? 413 : 400}, {}); }

void Join(const Track &track, Stream &stream, int64_t elapsedUs) {
    while (DueUs(track, stream.nextUnit) < elapsedUs) ++stream.nextUnit;
    while (!track.units[stream.nextUnit % track.units.size()].isKey) ++stream.nextUnit;
    stream.source.isFresh = true;
}

int64_t DueUs(const Track &track, uint64_t unit) {
    return track.lateUs + static_cast<int64_t>(unit * track.ticksPerUnit * 1000000 / track.clockHz);
}

} // namespace demo
