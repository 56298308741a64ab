/* rtsptap, beyond the base: what a program asks for that needs more than rtsptap.h gives. Same library, same
 * conventions (handles, texts, threads, result codes: see the head of rtsptap.h). A program that calls none of this
 * sees no difference.
 */
#ifndef RTSPTAP_EXTENDED_H
#define RTSPTAP_EXTENDED_H

#include "rtsptap.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Changes how RTP is to come, on the connection there is: for a server that refuses one way at SETUP (RFC 2326, 461
 * Unsupported Transport, 11.3.12).
 *
 * Allowed until the first stream is set up; the thread that calls the client's methods calls it. Sends nothing and
 * changes nothing else.
 *
 * @param dataProto  DATA_PROTO_UDP or DATA_PROTO_TCP
 * @return 0; RTSP_INVALID_ARGUMENT bad handle or dataProto; RTSP_NOT_CONNECTED; RTSP_INVALID_STATE a stream is set
 * up
 */
RTSPTAP_API int32_t RTSPTapSetDataProto(intptr_t clientHandle, uint32_t dataProto);

/**
 * Forgets the challenge of an earlier 401: requests carry no Authorization header of the library's any more, until
 * the next 401 to OPTIONS or DESCRIBE. For a program that answers challenges itself (RFC 7616), with an
 * Authorization entry in its header lists, because the scheme is none that the library computes. Name and password
 * stay. The thread that calls the client's methods calls it.
 *
 * @return 0; RTSP_INVALID_ARGUMENT bad handle
 */
RTSPTAP_API int32_t RTSPTapForgetChallenge(intptr_t clientHandle);

#ifdef __cplusplus
}
#endif

#endif
