// Receiving with retry, and closing. A failed receive leaves its errno to the caller, whatever was printed.
#include "platform/socket.h"

#include "platform/archive_names.h"
#include "rtsptap.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace {

// Printing may change errno, which holds the error to be told.
void PrintSystemError(int error) {
    errno = error;
    std::perror(nullptr);
}

int ReceiveFromStream(int sockfd, void *buf, int len, int flags) {
    int result = RTSP_FAILURE;
    int error = EINVAL; // a negative length
    while (len >= 0) {
        result = static_cast<int>(recv(sockfd, buf, static_cast<size_t>(len), flags));
        error = errno;
        if (result >= 0 || !rtsptap::IsInterrupted(error)) break;
        RtpRtspInfoPrint("TCP recv function error in linux: Err :%d Retval: %d \n", error, result);
        PrintSystemError(error);
    }
    errno = error;
    return result;
}

void PrintNothingReceived(int result) {
    const int error = errno;
    if (result == 0) RtpRtspInfoPrint("Connection was closed by server\n");
    if (result < 0) RtpRtspInfoPrint("Connection error %d\n", result);
    errno = error;
}

} // namespace

// Kept: 29 (ESPIPE) is retried like an interruption.
bool rtsptap::IsInterrupted(int error) { return error == EINTR || error == ESPIPE; }

int rtsptap::ReceiveDatagram(int sockfd, void *buf, int len, int flags, sockaddr *srcAddr, socklen_t *srcAddrLen) {
    if (len < 0) {
        errno = EINVAL;
        return RTSP_FAILURE;
    }
    // MSG_TRUNC: the datagram's own size, also when it does not fit.
    const auto result =
        static_cast<int>(recvfrom(sockfd, buf, static_cast<size_t>(len), MSG_TRUNC | flags, srcAddr, srcAddrLen));
    if (result > len)
        RtpRtspInfoPrint("Received data packet is greater than MTU size so changing MTU size; "
                         "retValue:%d, dataSize:%d\n",
                         result, len);
    return result;
}

int UDPSockRecv(int sockfd, void *buf, int len, struct sockaddr *srcAddr, socklen_t *srcAddrLen) {
    for (;;) {
        const int result = rtsptap::ReceiveDatagram(sockfd, buf, len, 0, srcAddr, srcAddrLen);
        const int error = errno;
        if (result >= 0 || !rtsptap::IsInterrupted(error)) return result;
        RtpRtspInfoPrint("UDP recv function error in linux: Err :%d Retval: %d \n", error, result);
        PrintSystemError(error);
    }
}

int rtsptap::ReceiveBytes(int sockfd, void *buf, int len, int flags) {
    const int result = ReceiveFromStream(sockfd, buf, len, flags);
    if (result >= 0 || errno != EAGAIN) PrintNothingReceived(result);
    return result;
}

int TCPSockRecv(int sockfd, void *buf, int len) {
    const int result = ReceiveFromStream(sockfd, buf, len, 0);
    PrintNothingReceived(result);
    return result;
}

void CloseSock(int fd) {
    if (fd == -1) return;
    shutdown(fd, SHUT_RDWR); // wakes a thread that is blocked on it, which close alone does not
    close(fd);
}

int CloseServerSock(int fd) {
    CloseSock(fd);
    return RTSP_SUCCESS;
}

RTSPTAP_WEAK_NAME(UDPSockRecv)
RTSPTAP_WEAK_NAME(TCPSockRecv)
RTSPTAP_WEAK_NAME(CloseSock)
RTSPTAP_WEAK_NAME(CloseServerSock)
