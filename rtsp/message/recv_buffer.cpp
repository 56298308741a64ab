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

void ReleaseRecvBuffer(RecvBuffer *recvBuffer) {
    if (recvBuffer == nullptr) return;
    std::free(recvBuffer->data);
    delete recvBuffer;
}

} // namespace rtsptap
