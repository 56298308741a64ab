// One scripted RTSP server for the whole suite: a list of { what the request must contain, what the server does }.
// It listens on every local address and walks its list on a thread of its own, across connections: the newest
// connection is the current one, earlier ones stay open. A request that does not meet its step, or comes after the
// last one, fails the test and closes the connection; so does, at the end, a step that was never asked for. An
// answer of the client to what the server asked is a request only where the step begins with "RTSP/".
#pragma once

#include <condition_variable>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <cstdint>

namespace rtsptap::test {

// Placeholders in requests expected and replies sent: {base} rtsp://127.0.0.1:PORT/live, {port} the server's port,
// {session} the session id 12345678, {cseq} the request's place in the list (replies only).

// Two streams with the control URLs {base}/track1 and {base}/track2.
inline constexpr char kDescription[] =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=Tone and picture\r\nt=0 0\r\n"
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n"
    "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/44100/2\r\na=control:track2\r\n";

struct Action {
    std::string bytes;
    bool expand = false;  // replace placeholders in the bytes
    int milliseconds = 0; // to wait before the bytes
    bool close = false;   // instead of the bytes
    bool reset = false;   // the same, abruptly
    bool endless = false; // the bytes again and again, as long as the client takes them
};

// Actions in order; joined with +. Texts and bytes side by side leave in one write, a Delay separates them.
using Reply = std::vector<Action>;
template <typename T> std::vector<T> operator+(std::vector<T> first, const std::vector<T> &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Reply Text(const std::string &text) { return {{.bytes = text, .expand = true}}; }
inline Reply SendBytes(const std::string &bytes) { return {{.bytes = bytes}}; }
inline Reply Delay(int milliseconds) { return {{.bytes = {}, .milliseconds = milliseconds}}; }
inline Reply Close() { return {{.bytes = {}, .close = true}}; }
inline Reply Reset() { return {{.bytes = {}, .close = true, .reset = true}}; }
inline Reply Endless(const std::string &bytes) { return {{.bytes = bytes, .endless = true}}; }
inline Reply Stall() { return {}; } // no reply; the connection stays open
// The bytes in two writes, cut at `cut`.
inline Reply Pieces(const std::string &bytes, std::size_t cut, int pauseMs) {
    return SendBytes(bytes.substr(0, cut)) + Delay(pauseMs) + SendBytes(bytes.substr(cut));
}

// A reply written as a text with commands: {ok} is a good beginning, {close} and {reset} end the connection, {wait
// N} is a delay, {media} a packet in a frame, {endless TEXT} what never ends, {stall} nothing.
Reply ReadReply(std::string text);

std::string ReplyText(const std::string &statusLine, std::initializer_list<std::string> headers,
                      const std::string &body);

template <typename... Lines> Reply Status(int code, const std::string &reason, Lines... headers) {
    return Text(ReplyText(std::to_string(code) + " " + reason, {std::string(headers)...}, ""));
}
template <typename... Lines> Reply Ok(Lines... headers) { return Status(200, "OK", headers...); }
template <typename... Lines> Reply WithBody(const std::string &sdp, Lines... headers) {
    return Text(
        ReplyText("200 OK", {std::string(headers)..., "Content-Length: " + std::to_string(sdp.size())}, sdp));
}

// Texts that the request must contain; one that begins with '!' must be absent.
struct Expect {
    Expect(const char *text) : texts{text} {}
    Expect(std::string text) : texts{std::move(text)} {}
    Expect(std::initializer_list<const char *> list) : texts(list.begin(), list.end()) {}
    std::vector<std::string> texts;
};

struct Step {
    Expect expect;
    Reply reply;
    bool mayBeMissing = false;
};
using Script = std::vector<Step>;
inline Script Times(std::size_t count, const Step &step) { return Script(count, step); }

class ScriptedServer {
public:
    explicit ScriptedServer(Script steps);
    ~ScriptedServer();
    ScriptedServer(ScriptedServer &&) = delete; // nor copied

    uint16_t Port() const { return port; }
    std::string Expand(std::string text) const;
    std::string Url(const std::string &host = "127.0.0.1", const std::string &path = "/live") const {
        return "rtsp://" + host + ":" + std::to_string(port) + path;
    }
    uint16_t ClientPort(const std::string &track) const; // of the last SETUP there with one; 0 without

    bool Send(const std::string &bytes); // on the current connection, from any thread; false when it has gone
    void Hangup(bool reset = false);     // closes the current connection

    std::vector<std::string> Requests() const;                       // exact bytes, in order of arrival
    std::vector<std::string> WaitForFrames(std::size_t count) const; // interleaved frames sent by the client
    bool WaitForClose() const;                                       // the client closed the current connection

private:
    void Serve();
    bool TakeWish(); // false when the server is to end
    void TakeConnection();
    bool TakeBytes(); // false when the connection has ended
    void TakeMessages();
    void Answer(const std::string &request);
    void Perform(const Reply &reply, std::size_t number);
    void EndConnection(bool reset);
    void AwaitRequests() const; // those that may not be missing, as long as the client is there

    const Script script;
    uint16_t port = 0;
    int listener = -1, wakeRead = -1;
    int wakeWrite = -1;       // a byte asks for a hang-up; closed to end the server's thread
    std::vector<int> earlier; // superseded connections; server's thread only
    std::string received;     // not yet a whole message; server's thread only

    mutable std::mutex lock; // guards what follows
    mutable std::condition_variable changed;
    int connection = -1;
    bool closedByClient = false;
    std::vector<std::string> requests, frames;

    std::thread thread;
};

} // namespace rtsptap::test
