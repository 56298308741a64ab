/* rtsptap: receiving real-time media with RTSP 1.0 (RFC 2326) and RTP/RTCP (RFC 3550).
 *
 * This header is the whole interface and its manual.
 */
#ifndef RTSPTAP_H
#define RTSPTAP_H

#include <pthread.h>
#include <stdint.h>
#include <sys/socket.h>

#define RTSPTAP_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes. Functions return 0 (or a count) on success and one of these on failure. */
enum RTSPResult {
    RTSP_SUCCESS = 0,
    RTSP_FAILURE = -1,               /* generic failure; no packet; not found */
    RTSP_MULTICAST_FAILED = -71,     /* the multicast transport of a SETUP reply is unusable */
    RTSP_NO_SUCH_CLIENT = -72,       /* RTSPClientDestroy: not a live client */
    RTSP_BAD_NUMBER = -73,           /* a number in a reply, description or header is not one */
    RTSP_UNLOCK_FAILED = -76,        /* the client list could not be unlocked */
    RTSP_LOCK_FAILED = -77,          /* the client list could not be locked */
    RTSP_MUTEX_FAILED = -78,         /* a mutex could not be created */
    RTSP_CONNECT_FAILED = -80,       /* TCP connection refused or unreachable */
    RTSP_SOCKET_FAILED = -82,        /* a socket could not be created */
    RTSP_INVALID_SESSION = -83,      /* the reply names another session than ours */
    RTSP_INVALID_STATE = -84,        /* the method is not allowed in the client's state */
    RTSP_SMALL_BUFFER = -85,         /* the caller's buffer is too small; the size needed was stored */
    RTSP_REDIRECTED = -86,           /* status 3xx */
    RTSP_CLIENT_ERROR = -87,         /* status 4xx, except a 401 that is answered with -88 */
    RTSP_UNAUTHORIZED = -88,         /* status 401; the challenge is stored, repeat the call */
    RTSP_SERVER_ERROR = -89,         /* status 5xx */
    RTSP_BAD_RESPONSE = -90,         /* the reply or its description could not be parsed */
    RTSP_NO_RESPONSE = -91,          /* the server closed the connection or reading failed */
    RTSP_RESPONSE_TIMEOUT = -92,     /* no reply within 25 seconds */
    RTSP_SEND_FAILED = -93,          /* sending failed; a step of the automatic connection failed */
    RTSP_REQUEST_NOT_BUILT = -94,    /* the request could not be generated */
    RTSP_NOT_CONNECTED = -95,        /* no RTSP connection */
    RTSP_INVALID_HEADER_LIST = -96,  /* a user header is not acceptable; a client port is taken */
    RTSP_HEADER_NAME = -97,          /* the header name is in the list already, or not in it */
    RTSP_NO_MEMORY = -98,            /* memory could not be allocated */
    RTSP_INVALID_ARGUMENT = -99      /* null, out of range, not a live handle, no such stream */
};

/** Client states. */
enum RTSPClientState {
    CLIENT_INIT_STATE = 0,
    CLIENT_OPTIONS_SENT_STATE = 1,
    CLIENT_DESCRIBE_SENT_STATE = 2,
    CLIENT_READY_STATE = 3,
    CLIENT_PLAYING_STATE = 4,
    CLIENT_PAUSE_STATE = 5
};

/** How RTP is carried: dataProto of RTSPClientConnect. */
enum DataProto {
    DATA_PROTO_UDP = 0, /* UDP unicast, or multicast when the server's SETUP reply says so */
    DATA_PROTO_TCP = 1  /* interleaved in the RTSP connection (RFC 2326, 10.12) */
};

/** RTSP methods. TEARDOWN is 4 and PAUSE is 5. */
enum RTSPMethod {
    RTSP_OPTIONS = 0,
    RTSP_DESCRIBE = 1,
    RTSP_SETUP = 2,
    RTSP_PLAY = 3,
    RTSP_TEARDOWN = 4,
    RTSP_PAUSE = 5,
    RTSP_GET_PARAMETER = 7
};

/** Codec types: what a stream carries, and how packet functions choose a stream. */
enum RTPCodecType {
    RTP_CODEC_H264 = 100,
    RTP_CODEC_MP4V_ES = 101,
    RTP_CODEC_JPEG = 102,
    RTP_CODEC_MP2T = 103,
    RTP_CODEC_PCMA = 200,
    RTP_CODEC_PCMU = 201,
    RTP_CODEC_L16 = 202,
    RTP_CODEC_MPEG4_GENERIC = 203,
    RTP_CODEC_G726 = 204,
    RTP_CODEC_MPA = 205
};

/** The fixed RTP header (RFC 3550, 5.1), in host byte order. */
typedef struct RTPHeader {
    uint8_t version : 2, padding : 1, extension : 1, csrcCount : 4;
    uint8_t marker : 1, payloadType : 7;
    uint16_t sequenceNumber;
    uint32_t timestamp;
    uint32_t ssrc;
    uint32_t csrc[16]; /* the first csrcCount are filled */
} RTPHeader;

/** One received RTP packet. */
typedef struct RTPStreamData {
    int32_t codecType;
    RTPHeader *rtpHeader;
    uint32_t payloadLength;
    uint8_t *payload;
    uint16_t extensionLength;
    uint16_t extensionProfile;
    uint8_t *extensionData;
    uint32_t packetLength;
    uint8_t *packetData;
    uint32_t lossFlag;
    uint32_t packetIndex;
    struct RTPStreamData *next;
    struct RTPStreamData *prev;
} RTPStreamData;

/** What the session description says of one stream. */
typedef struct RTSPStreamDescription {
    uint8_t isVideo;
    char encodingName[33];
    int32_t codecType;
    int32_t payloadNumber;
    int32_t clockRate;
    double frameRate;
    int32_t channels;
    int32_t bandwidth;
    int32_t fmtpLength;
    char *fmtp;
    uint8_t *sps;
    int32_t spsSize;
    uint8_t *pps;
    int32_t ppsSize;
    uint8_t *aacConfig;
    int32_t aacConfigSize;
    int32_t aacObjectType;
    int32_t aacSamplingRate;
    int32_t aacChannels;
} RTSPStreamDescription;

/* ---- clients ---- */

RTSPTAP_API intptr_t RTSPClientCreate(void);
RTSPTAP_API int32_t ValidateRTSPClientHandle(intptr_t clientHandle);
RTSPTAP_API int32_t RTSPClientDestroy(intptr_t clientHandle);
RTSPTAP_API int32_t RTSPClientSetMTUSize(intptr_t clientHandle, uint32_t mtuSize);

/* ---- header lists ---- */

RTSPTAP_API intptr_t RTSPCreateHeaderList(void);
RTSPTAP_API int32_t RTSPAddHeaderToList(intptr_t headerList, const char *headerName, const char *headerValue,
                                        uint8_t isCustom);
RTSPTAP_API int32_t RTSPRemoveHeaderFromList(intptr_t headerList, const char *headerName);
RTSPTAP_API int32_t RTSPModifyHeaderInList(intptr_t headerList, const char *headerName, const char *headerValue);
RTSPTAP_API int32_t RTSPDestroyHeaderList(intptr_t headerList);

/* ---- RTSP ---- */

RTSPTAP_API int32_t RTSPClientConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort,
                                      const char *sessionName, uint32_t dataProto, intptr_t mtuCallBack);
RTSPTAP_API int32_t RTSPClientSendOptionsRequest(intptr_t clientHandle, intptr_t optionsHeaderList,
                                                 char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientSendDescribeRequest(intptr_t clientHandle, intptr_t describeHeaderList,
                                                  char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientGetNbStreams(intptr_t clientHandle);
RTSPTAP_API RTSPStreamDescription *RTSPClientGetSDPInfo(intptr_t clientHandle, int32_t streamCount);
RTSPTAP_API int32_t RTSPClientGetSDPFieldInfo(intptr_t clientHandle, int32_t streamCount, const char *sdpFieldName,
                                              char *sdpFieldValue, uint32_t *sdpFieldSize);
RTSPTAP_API int32_t RTSPClientSendSetupRequest(intptr_t clientHandle, int32_t streamCount, intptr_t setupHeaderList,
                                               char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientSendPlayRequest(intptr_t clientHandle, int32_t streamCount, intptr_t playHeaderList,
                                              char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientSendPauseRequest(intptr_t clientHandle, int32_t streamCount, intptr_t pauseHeaderList,
                                               char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientSendTeardownRequest(intptr_t clientHandle, intptr_t teardownHeaderList,
                                                  char *responseBuff, int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientAutoRTSPConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort,
                                              const char *sessionName, const char *username, const char *password,
                                              uint32_t dataProto, intptr_t optionsHeaderList,
                                              intptr_t describeHeaderList, intptr_t setupHeaderList,
                                              intptr_t playHeaderList, intptr_t mtuCallBack, char *responseBuff,
                                              int32_t *responseSize);
RTSPTAP_API int32_t RTSPClientGetSSRC(intptr_t clientHandle, int32_t streamCount, uint32_t *ssrc);

/* ---- packets ---- */

RTSPTAP_API int32_t RTPClientGetTSOffset(intptr_t clientHandle, int32_t codecType, uint32_t *tsOffset,
                                         int32_t audioClockRate);
RTSPTAP_API int32_t RTPClientPeekRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType);
RTSPTAP_API int32_t RTPClientGetRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType);
RTSPTAP_API int32_t RTPClientFreeRTPStreamData(intptr_t clientHandle, RTPStreamData *streamData, int32_t codecType);
RTSPTAP_API int32_t RTPClientConfigLatency(intptr_t clientHandle, int32_t tLInMS, int32_t uFInMS, int32_t oFInMS);
RTSPTAP_API int32_t RTPClientSetAudioVideoBufferSize(intptr_t clientHandle, int32_t videoBufferSize,
                                                     int32_t audioBufferSize);
RTSPTAP_API int32_t RTPClientGetNbOfPktInBuffer(intptr_t clientHandle, int32_t codecType);
RTSPTAP_API int32_t RTPClientGetStreamPktCount(intptr_t clientHandle, int32_t codecType);

/* ---- receiving without RTSP ---- */

RTSPTAP_API int32_t StartThirdPartyClient(intptr_t clientHandle, int32_t adVdFlag, int32_t videoOrTsCodecName,
                                          uint16_t videoOrTsPort, int32_t videoBufferSize, int32_t audioCodecName,
                                          uint16_t audioPort, int32_t audioBufferSize, int32_t tLInMS, int32_t uFInMS,
                                          int32_t oFInMS);
RTSPTAP_API int32_t CreateRTPStream(intptr_t clientHandle, int32_t codecType, uint16_t port, uint8_t isVideo);

/* ---- printers ---- */

RTSPTAP_API void RtpRtspDebugPrint(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
RTSPTAP_API int RtpRtspErrorPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));
RTSPTAP_API int RtpRtspInfoPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- platform wrappers ---- */

RTSPTAP_API int ThreadCreate(pthread_t *threadId, void *(*startRoutine)(void *), void *argument);
RTSPTAP_API void ThreadExit(int status) __attribute__((noreturn));
RTSPTAP_API int ThreadDetach(pthread_t threadId);
RTSPTAP_API int WaitForThreadCompletion(pthread_t threadId);
RTSPTAP_API void HandleSignal(void);
RTSPTAP_API uint64_t GetTimeValue(void);
RTSPTAP_API int GetPresentTimeInSec(uint32_t *seconds, uint32_t *microseconds);
RTSPTAP_API int MutexInit(pthread_mutex_t *mutex);
RTSPTAP_API int MutexLock(pthread_mutex_t *mutex);
RTSPTAP_API int MutexUnlock(pthread_mutex_t *mutex);
RTSPTAP_API int MutexDestroy(pthread_mutex_t *mutex);
RTSPTAP_API int InitConditionVar(pthread_cond_t *condition);
RTSPTAP_API int SignalOnConditionVar(pthread_cond_t *condition);
RTSPTAP_API int WaitForConditionVar(pthread_cond_t *condition, pthread_mutex_t *mutex);
RTSPTAP_API int DestroyConditionVar(pthread_cond_t *condition);
RTSPTAP_API int MSecDelay(uint32_t milliseconds);
RTSPTAP_API int UDPSockRecv(int sockfd, void *buf, int len, struct sockaddr *srcAddr, socklen_t *srcAddrLen);
RTSPTAP_API int TCPSockRecv(int sockfd, void *buf, int len);
RTSPTAP_API void CloseSock(int fd);
RTSPTAP_API int CloseServerSock(int fd);
RTSPTAP_API int Base64Encode(const uint8_t *data, int32_t length, char **encoded);

/* ---- supplied by the host process ---- */

/* Visible whatever the host compiles with: the library looks it up in the host's executable. */
#pragma GCC visibility push(default)

/** Computes a digest response (RFC 2617); rtsptap::digest has a default. Not defined by this library. */
int GenerateDigestResponse(const char *nonce, const char *cnonce, const char *username, const char *realm,
                           const char *password, const char *algorithm, const char *nonceCount, const char *method,
                           const char *qop, const char *uri, char *response);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* RTSPTAP_H */
