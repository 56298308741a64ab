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

/**
 * Is shown an RTCP packet of a session. Called on threads of the library, over TCP also on those that take packets:
 * it must return soon, and call no function of the library.
 *
 * @param streamNumber  number of its stream, from 1
 * @param isSent        1: a report of ours that was sent; 0: it was received
 * @param packet        the whole compound packet, unchecked; good until the callback returns
 * @param length        its bytes
 */
typedef void (*RTSPTapRtcpCallback)(void *context, int32_t streamNumber, int32_t isSent, const uint8_t *packet,
                                    uint32_t length);

/**
 * Has the client's RTCP packets shown, received and sent ones: for captures, and for what nobody else reads in
 * them. Reports are sent all the same. To be set between RTSPClientCreate and RTSPClientConnect; it counts until
 * RTSPClientDestroy has returned.
 *
 * @param callback  null: none
 * @param context   handed to the callback
 * @return 0; RTSP_FAILURE the client has connected before; RTSP_INVALID_ARGUMENT bad handle
 */
RTSPTAP_API int32_t RTSPTapSetRtcpCallback(intptr_t clientHandle, RTSPTapRtcpCallback callback, void *context);

#ifdef __cplusplus
}
#endif

#endif
