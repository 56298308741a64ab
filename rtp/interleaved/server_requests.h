// What a server asks of its client on the RTSP connection (RFC 2326, 10.1 and 10.8), and what it is told. Whoever
// serves the connection.
#pragma once

#include <string_view>

namespace rtsptap {

struct Connection;

// Answers the request that begins there: 200 to OPTIONS, GET_PARAMETER and SET_PARAMETER, 501 to any other, with
// its CSeq and Session. Never waits for a server that does not read: then it stays unanswered.
void AnswerRequest(Connection &connection, std::string_view request);

} // namespace rtsptap
