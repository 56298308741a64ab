// One scripted RTSP server for the whole suite: a list of { what the request must contain, what the server does }.
// It listens on 127.0.0.1 and walks its list on a thread of its own, across connections: the newest connection is
// the current one, earlier ones stay open. A request that does not meet its step, or comes after the last one,
// fails the test and closes the connection; so does, at the end, a step that was never asked for.
#pragma once

#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <cstdint>

namespace rtsptap::test {

// Placeholders in requests expected and replies sent: {base} rtsp://127.0.0.1:PORT/live, {port} the server's port,
// {session} the session id, {cseq} the request's number (replies only).
inline constexpr char kSessionId[] = "12345678";

struct Action {
    enum class Kind { kText, kBytes, kDelay, kClose, kReset, kRun };
    Kind kind = Kind::kBytes;
    std::string bytes;         // kText (placeholders are replaced), kBytes
    int milliseconds = 0;      // kDelay
    std::function<void()> run; // kRun, on the server's thread
};

// Actions in order; joined with +. Texts and bytes side by side leave in one write, a Delay separates them.
using Reply = std::vector<Action>;
Reply operator+(Reply first, const Reply &second);

Reply Text(std::string text);
Reply SendBytes(std::string bytes);
Reply Delay(int milliseconds);
Reply Close();
Reply Reset(); // closes with a TCP reset
Reply Stall(); // no reply; the connection stays open
Reply Do(std::function<void()> run);
// The parts of the bytes between the cuts, each in a write of its own.
Reply Pieces(const std::string &bytes, const std::vector<std::size_t> &cuts, int pauseMs);

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
};
using Script = std::vector<Step>;
Script operator+(Script first, const Script &second);
Script Times(std::size_t count, const Step &step);

class ScriptedServer {
public:
    explicit ScriptedServer(Script steps);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    uint16_t Port() const { return port; }
    std::string Expand(std::string text) const;

    void Send(const std::string &bytes); // on the current connection, from the test's thread
    void Hangup(bool reset = false);     // closes the current connection

    std::vector<std::string> Requests() const; // exact bytes, in order of arrival
    std::string LastRequest() const;
    std::vector<std::string> WaitForFrames(std::size_t count) const; // interleaved frames sent by the client
    bool WaitForClose() const;                                       // the client closed the current connection

private:
    void Serve();
    bool TakeWish(); // false when the server is to end
    void TakeConnection();
    bool TakeBytes(); // false when the connection has ended
    void TakeMessages();
    void Answer(const std::string &request);
    void Perform(const Reply &reply, const std::string &request);
    void Write(const std::string &bytes);
    void EndConnection(bool reset);

    const Script script;
    uint16_t port = 0;
    int listener = -1;
    int wakeRead = -1;
    int wakeWrite = -1;       // a byte asks for a hang-up; closed to end the server's thread
    std::vector<int> earlier; // superseded connections; server's thread only
    std::string received;     // not yet a whole message; server's thread only

    mutable std::mutex lock; // guards what follows
    mutable std::condition_variable changed;
    int connection = -1;
    bool closedByClient = false;
    std::vector<std::string> requests;
    std::vector<std::string> frames;

    std::thread thread;
};

} // namespace rtsptap::test
