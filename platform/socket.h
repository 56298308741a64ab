// Receiving with flags of the caller's; the rest of the socket wrappers is exported.
#pragma once

#include <sys/socket.h>

namespace rtsptap {

// Whether a receive call with this errno is made again, rather than failed.
bool IsInterrupted(int error);

// UDPSockRecv with further flags of recvfrom(2), such as MSG_DONTWAIT, and without its retry: an interrupted call tells
// so (IsInterrupted), silently, that whoever receives can look at its orders.
int ReceiveDatagram(int sockfd, void *buf, int len, int flags, sockaddr *srcAddr, socklen_t *srcAddrLen);

// TCPSockRecv with flags of recv(2). That nothing has arrived yet (EAGAIN) is not printed.
int ReceiveBytes(int sockfd, void *buf, int len, int flags);

} // namespace rtsptap
