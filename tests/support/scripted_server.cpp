#include "tests/support/scripted_server.h"

#include "tests/support/packet_builder.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <regex>

namespace rtsptap::test {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

void ReplaceAll(std::string &text, const std::string &mark, const std::string &value) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + value.size()))
        text.replace(at, mark.size(), value);
}

// The first text that the request does not meet; empty when it meets all.
std::string FirstUnmet(const std::vector<std::string> &texts, const ScriptedServer &server,
                       const std::string &request) {
    for (const std::string &text : texts) {
        const bool absent = text.starts_with('!');
        const bool found = request.find(server.Expand(absent ? text.substr(1) : text)) != std::string::npos;
        if (found == absent) return text;
    }
    return "";
}

} // namespace

std::string ReplyText(const std::string &statusLine, std::initializer_list<std::string> headers,
                      const std::string &body) {
    std::string text = "RTSP/1.0 " + statusLine + "\r\nCSeq: {cseq}\r\n";
    for (const std::string &header : headers) text += header + "\r\n";
    return text + "\r\n" + body;
}

Reply ReadReply(std::string text) {
    Reply reply;
    static const std::regex kCommands("\\{(ok|close|reset|wait|media|endless|stall) ?([^}]*)\\}");
    for (std::smatch found; std::regex_search(text, found, kCommands); text = found.suffix()) {
        reply = reply + SendBytes(found.prefix());
        const std::string command = found[1];
        if (command == "ok") reply = reply + SendBytes("RTSP/1.0 200 OK\r\nCSeq: 7\r\n");
        if (command == "close" || command == "reset") reply = reply + (command == "reset" ? Reset() : Close());
        if (command == "wait") reply = reply + Delay(std::stoi(found[2]));
        if (command == "media") reply = reply + SendBytes(Frame(0, Rtp(1)));
        if (command == "endless") reply = reply + Endless(found[2]);
    }
    return reply + SendBytes(text);
}

ScriptedServer::ScriptedServer(Script steps) : script(std::move(steps)) {
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6; // and IPv4, also as 127.0.0.2, another host to a client
    socklen_t length = sizeof address;
    listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int ends[2] = {-1, -1};
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), length) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0 || pipe(ends) != 0)
        ADD_FAILURE() << "the scripted server cannot listen";
    port = ntohs(address.sin6_port);
    wakeRead = ends[0];
    wakeWrite = ends[1];
    thread = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
    AwaitRequests();
    close(wakeWrite);
    thread.join();
    EndConnection(false);
    for (const int fd : earlier) close(fd);
    close(listener);
    close(wakeRead);
    for (std::size_t i = requests.size(); i < script.size(); ++i)
        if (!script[i].mayBeMissing)
            ADD_FAILURE() << "the client never sent request " << i + 1 << ": " << Expand(script[i].expect.texts[0]);
}

// A client that waits for no reply may have gone before what it sent is read.
void ScriptedServer::AwaitRequests() const {
    std::size_t needed = script.size();
    while (needed > 0 && script[needed - 1].mayBeMissing) --needed;
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, kPatience, [&] { return requests.size() >= needed || closedByClient; });
}

std::string ScriptedServer::Expand(std::string text) const {
    ReplaceAll(text, "{base}", "rtsp://127.0.0.1:{port}/live");
    ReplaceAll(text, "{port}", std::to_string(port));
    ReplaceAll(text, "{session}", "12345678");
    return text;
}

void ScriptedServer::Hangup(bool reset) {
    const char wish = reset ? 'r' : 'c';
    if (write(wakeWrite, &wish, 1) != 1) ADD_FAILURE() << "the scripted server cannot be woken";
}

std::vector<std::string> ScriptedServer::Requests() const {
    const std::lock_guard<std::mutex> guard(lock);
    return requests;
}

uint16_t ScriptedServer::ClientPort(const std::string &track) const {
    uint16_t chosen = 0;
    for (const std::string &request : Requests()) {
        const std::size_t at = request.find("client_port=");
        if (request.starts_with("SETUP " + Url() + track) && at != std::string::npos)
            chosen = static_cast<uint16_t>(std::stoi(request.substr(at + 12)));
    }
    return chosen;
}

std::vector<std::string> ScriptedServer::WaitForFrames(std::size_t count) const {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, kPatience, [&] { return frames.size() >= count; });
    return frames;
}

bool ScriptedServer::WaitForClose() const {
    std::unique_lock<std::mutex> guard(lock);
    return changed.wait_for(guard, kPatience, [&] { return closedByClient; });
}

void ScriptedServer::Serve() {
    for (;;) {
        // A connection that has ended is -1 here, which poll passes over.
        pollfd waits[] = {{wakeRead, POLLIN, 0}, {listener, POLLIN, 0}, {connection, POLLIN, 0}};
        if (poll(waits, 3, -1) < 0) continue;
        if (waits[0].revents != 0 && !TakeWish()) return;
        if (waits[2].revents != 0 && connection >= 0) {
            if (TakeBytes())
                TakeMessages();
            else
                EndConnection(false);
        }
        if (waits[1].revents != 0) TakeConnection();
    }
}

bool ScriptedServer::TakeWish() {
    char wish = 0;
    if (read(wakeRead, &wish, 1) != 1) return false;
    EndConnection(wish == 'r');
    return true;
}

void ScriptedServer::TakeConnection() {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard<std::mutex> guard(lock);
    if (connection >= 0) earlier.push_back(connection);
    connection = fd;
    closedByClient = false;
    received.clear();
}

bool ScriptedServer::TakeBytes() {
    char bytes[65536];
    const ssize_t count = recv(connection, bytes, sizeof bytes, 0);
    if (count > 0) {
        received.append(bytes, static_cast<std::size_t>(count));
        return true;
    }
    const std::lock_guard<std::mutex> guard(lock);
    closedByClient = true;
    changed.notify_all();
    return false;
}

void ScriptedServer::TakeMessages() {
    for (;;) {
        std::size_t length = 0;
        if (received.starts_with('$')) {
            if (received.size() < 4) return;
            length = 4U + static_cast<uint8_t>(received[2]) * 256U + static_cast<uint8_t>(received[3]);
        } else {
            length = received.find("\r\n\r\n");
            if (length == std::string::npos) return;
            const std::size_t body = received.find("\r\nContent-Length: ");
            length += 4 + (body < length ? std::stoul(received.substr(body + 18)) : 0);
        }
        if (received.size() < length) return;
        const std::string message = received.substr(0, length);
        received.erase(0, length);
        if (!message.starts_with('$')) Answer(message);
        const std::lock_guard<std::mutex> guard(lock);
        if (message.starts_with('$')) frames.push_back(message);
        changed.notify_all();
    }
}

void ScriptedServer::Answer(const std::string &request) {
    std::size_t index = 0;
    {
        const std::lock_guard<std::mutex> guard(lock);
        index = requests.size();
        const bool isExpected = index < script.size() && script[index].expect.texts[0].starts_with("RTSP/");
        if (request.starts_with("RTSP/") && !isExpected) return; // an answer that the script has no part in
        requests.push_back(request);
    }
    if (index >= script.size()) {
        ADD_FAILURE() << "request " << index + 1 << " comes after the script's end:\n" << request;
        return EndConnection(false);
    }
    if (const std::string unmet = FirstUnmet(script[index].expect.texts, *this, request); !unmet.empty()) {
        ADD_FAILURE() << "request " << index + 1 << " does not meet \"" << Expand(unmet) << "\":\n" << request;
        return EndConnection(false);
    }
    Perform(script[index].reply, index + 1);
}

void ScriptedServer::Perform(const Reply &reply, std::size_t number) {
    std::string together;
    for (const Action &action : reply) {
        if (action.milliseconds > 0 || action.close || action.endless) {
            Send(together);
            together.clear();
        }
        pollfd wake = {wakeRead, POLLIN, 0};
        if (action.milliseconds > 0 && poll(&wake, 1, action.milliseconds) > 0) return;
        if (action.close) EndConnection(action.reset);
        while (action.endless && Send(action.bytes) && poll(&wake, 1, 0) == 0) {
        }
        if (action.endless) continue;
        std::string text = action.expand ? Expand(action.bytes) : action.bytes;
        if (action.expand) ReplaceAll(text, "{cseq}", std::to_string(number));
        together += text;
    }
    Send(together);
}

bool ScriptedServer::Send(const std::string &bytes) {
    const std::lock_guard<std::mutex> guard(lock);
    for (std::size_t sent = 0; connection >= 0 && sent < bytes.size();) {
        const ssize_t count = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    return connection >= 0;
}

void ScriptedServer::EndConnection(bool reset) {
    const std::lock_guard<std::mutex> guard(lock);
    if (connection < 0) return;
    const linger abrupt = {1, 0};
    if (reset) setsockopt(connection, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    close(connection);
    connection = -1;
}

} // namespace rtsptap::test
