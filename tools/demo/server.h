// The one thread that serves all players: it waits for requests, reports and the next packet that is due.
#pragma once

#include "session.h"

#include <poll.h>

#include <list>

namespace demo {

class Server {
public:
    explicit Server(Offer offer) : offer_(std::move(offer)) {}
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // On 127.0.0.1; the port, any free one for 0; 0 where it cannot be had, errno says why.
    uint16_t Listen(uint16_t port);

    // Serves until *end is set, by a signal that only this call lets through, or for so many seconds (0: no limit).
    void Run(const volatile int *end, int seconds);

private:
    void Accept(int64_t nowUs);
    void Hear(Connection &connection, int64_t nowUs);
    void TakeRequests(Connection &connection, int64_t nowUs);
    void HearReports(int socket, int64_t nowUs);
    int64_t SendDue(Connection &connection, int64_t nowUs);
    void SendUnit(Connection &connection, std::size_t track);
    void SendReport(Connection &connection, std::size_t track, int64_t nowUs);
    std::vector<pollfd> Wait(int64_t untilUs) const;
    int64_t Serve(Connection &connection, short events, int64_t nowUs);

    Offer offer_;
    int listener_ = -1;
    int64_t acceptUs_ = 0;     // no connection is taken before then
    std::vector<int> sockets_; // per track RTP, RTCP
    std::list<Connection> connections_;
};

} // namespace demo
