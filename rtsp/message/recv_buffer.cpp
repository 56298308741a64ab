#include "rtsp/message/recv_buffer.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace rtsptap {

RecvBuffer *CreateRecvBuffer(uint32_t capacity) {
    RecvBufferPtr recvBuffer(new (std::nothrow) RecvBuffer{});
    if (!recvBuffer) return nullptr;
    recvBuffer->data = static_cast<char *>(std::calloc(std::size_t{capacity} + 1, 1));
    return recvBuffer->data == nullptr ? nullptr : recvBuffer.release();
}

void ShrinkRecvBuffer(RecvBuffer &recvBuffer) {
    void *const shrunk = std::realloc(recvBuffer.data, static_cast<std::size_t>(recvBuffer.length) + 1);
    if (shrunk != nullptr) recvBuffer.data = static_cast<char *>(shrunk);
}

void ReleaseRecvBuffer(RecvBuffer *recvBuffer) {
    if (recvBuffer == nullptr) return;
    std::free(recvBuffer->data);
    delete recvBuffer;
}

} // namespace rtsptap
