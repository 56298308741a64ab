/* rtsptap: receiving real-time media with RTSP 1.0 (RFC 2326) and RTP/RTCP (RFC 3550) on Linux.
 *
 * This header is the whole interface and its manual. What holds for every function is said once, here.
 *
 * A session
 *
 *     intptr_t client = RTSPClientCreate();
 *     RTPClientSetAudioVideoBufferSize(client, 1 << 20, 1 << 18);
 *     RTSPClientConnect(client, "10.0.0.5", 554, "live", DATA_PROTO_UDP, 0);
 *     RTSPClientSendDescribeRequest(client, 0, NULL, NULL);
 *     for (int32_t stream = 1; stream <= RTSPClientGetNbStreams(client); stream++)
 *         RTSPClientSendSetupRequest(client, stream, 0, NULL, NULL);
 *     RTSPClientSendPlayRequest(client, 0, 0, NULL, NULL);
 *     for (int taken = 0; taken < 1000;) {
 *         RTPStreamData *packet = NULL;
 *         int32_t result = RTPClientGetRTPStreamData(client, &packet, RTP_CODEC_H264);
 *         if (result == RTSP_FAILURE) continue;    // nothing came within 5 seconds
 *         if (result < 0 || packet == NULL) break; // a bad argument; no such stream
 *         taken++; // packet->payload: packet->payloadLength bytes of H.264 (RFC 6184)
 *         RTPClientFreeRTPStreamData(client, packet, RTP_CODEC_H264);
 *     }
 *     RTSPClientSendTeardownRequest(client, 0, NULL, NULL);
 *     RTSPClientDestroy(client);
 *
 * A program would look at every result. RTSPClientAutoRTSPConnect makes one call of everything from connecting
 * to playing; StartThirdPartyClient receives RTP on given ports without any RTSP.
 *
 * Handles
 *     A client handle stands for one session with one server, a header list handle for extra request headers.
 *     Both are intptr_t; 0 is no handle, and functions that make one give a negative result code on failure.
 *     Client handles are checked against the list of live clients; header list handles are not, so use none
 *     after RTSPDestroyHeaderList.
 *
 * Streams
 *     The functions of RTSP name a stream by its number: 1, 2, ... in the order of the description. The packet
 *     functions name it by its codec (RTPCodecType) and mean the first stream that has it: of two streams with
 *     one codec only the first can be read.
 *
 * Texts, sizes, units
 *     Texts are NUL-terminated bytes and are copied on entry; nothing keeps a pointer of yours. Sizes are bytes.
 *     Times are milliseconds unless a name says otherwise. Ports and all fields of records are in host byte
 *     order. Addresses are dotted IPv4; resolve names yourself.
 *
 * Result codes
 *     0 (or a count, or a handle) is success, a negative RTSPResult failure; the exceptions say so. As a rule a
 *     failed call prints a line that tells why. A failed exchange with the server leaves the client's state as it
 *     was, except where its function says otherwise.
 *
 * Ownership
 *     Packets taken with RTPClientGetRTPStreamData are the caller's until RTPClientFreeRTPStreamData, which every
 *     one of them must meet before RTSPClientDestroy. Blocks from RTSPClientGetSDPInfo belong to the client. A
 *     header list belongs to the caller; a method reads it only while it runs.
 *
 * Threads
 *     Clients may be created, destroyed and used from any thread, and different clients at the same time. On one
 *     client, one thread at a time calls methods, connect, settings and queries; meanwhile other threads may call
 *     the packet functions, one reading thread per stream. RTSPClientDestroy must be the only call on its client.
 *     Over UDP each playing stream has two threads of the library (RTP and RTCP), over TCP a connection has one.
 *     No function calls back into the program, except GenerateDigestResponse, on the thread of the method.
 *
 * Waiting
 *     Connecting and sending block as long as the system lets them. Methods wait up to 25 seconds for a reply,
 *     taking a packet up to about 5 seconds. TEARDOWN and RTSPClientDestroy wait for the library's threads,
 *     which are prompt.
 *
 *     Ending readers: a waiting one returns RTSP_FAILURE at once when the reception of its stream ends, by TEARDOWN
 *     or, over TCP, because the connection has ended. Set a flag of your own that readers look at after every call,
 *     TEARDOWN, join them, free what they hold, destroy the client. Without a TEARDOWN (no RTSP, a server that is
 *     gone) each sees the flag within about 5 seconds.
 *
 * Standard output
 *     The library tells what it does on the process's standard output: failures as "!!!ERROR!!! : ...",
 *     milestones as "!!!INFO!!! : ...", lost and reordered packets without a prefix. It prints from several
 *     threads and does not flush. A program that needs the descriptor for itself moves it aside before its first
 *     call, prints to the copy, and never puts it back while a client lives:
 *
 *         fflush(stdout);
 *         FILE *data = fdopen(dup(STDOUT_FILENO), "w");
 *         int log = open("/dev/null", O_WRONLY); // or a file, or a pipe that somebody reads
 *         dup2(log, STDOUT_FILENO);
 *         close(log);
 *
 * The process
 *     The first RTSPClientCreate sets SIGPIPE to be ignored. Local UDP ports are counted up for all clients
 *     together: pairs from 2002 on, back to 2000 after 59999. So is the sum of lost packets that is printed.
 *     After fork() a child must neither use nor destroy its parent's clients: their threads are not in it, and it
 *     would speak and shut down on the parent's connections. Let it call exec or _exit, or make clients of its own
 *     if no other thread was in the library at the fork.
 *
 * Linking
 *     The library imports one function, GenerateDigestResponse, for servers that ask for a password. Link
 *     rtsptap::digest (librtsptap-digest.a and libcrypto) after the library, or define the function yourself.
 *     Nothing but the C and C++ run-time libraries is needed otherwise. Both forms of the library leave the
 *     names of the platform wrappers to a program that has them and go on calling their own. A shared object
 *     with librtsptap.a in it shows none of the library's names to others.
 *
 * Limits
 *     server address 31 characters, session name 63, user name and password 127 each, session identifier 32,
 *     control URL 256, encoding name 32; 32 headers in a request or reply; 33792 bytes in one read of a reply
 *     (a description may come in two); 128 streams over TCP; 1023 characters in a printed line. Receiver reports
 *     name the host if its name has at most 27 characters.
 */
#ifndef RTSPTAP_H
#define RTSPTAP_H

#include <pthread.h>
#include <stdint.h>
#include <sys/socket.h>

#ifndef RTSPTAP_API
#define RTSPTAP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes. Functions return 0 (or a count) on success and one of these on failure. */
enum RTSPResult {
    RTSP_SUCCESS = 0,
    RTSP_FAILURE = -1,              /* generic failure; no packet; not found */
    RTSP_MULTICAST_FAILED = -71,    /* the multicast transport of a SETUP reply is unusable */
    RTSP_NO_SUCH_CLIENT = -72,      /* RTSPClientDestroy: not a live client */
    RTSP_BAD_NUMBER = -73,          /* a number in a reply, description or header is not one */
    RTSP_UNLOCK_FAILED = -76,       /* the client list could not be unlocked */
    RTSP_LOCK_FAILED = -77,         /* the client list could not be locked */
    RTSP_MUTEX_FAILED = -78,        /* a mutex could not be created */
    RTSP_CONNECT_FAILED = -80,      /* TCP connection refused or unreachable */
    RTSP_SOCKET_FAILED = -82,       /* a socket could not be created */
    RTSP_INVALID_SESSION = -83,     /* the reply names another session than ours */
    RTSP_INVALID_STATE = -84,       /* the method is not allowed in the client's state */
    RTSP_SMALL_BUFFER = -85,        /* the caller's buffer is too small; the size needed was stored */
    RTSP_REDIRECTED = -86,          /* status 3xx */
    RTSP_CLIENT_ERROR = -87,        /* status 4xx, except a 401 that is answered with -88 */
    RTSP_UNAUTHORIZED = -88,        /* status 401; the challenge is stored, repeat the call */
    RTSP_SERVER_ERROR = -89,        /* status 5xx */
    RTSP_BAD_RESPONSE = -90,        /* the reply or its description could not be parsed */
    RTSP_NO_RESPONSE = -91,         /* the server closed the connection or reading failed */
    RTSP_RESPONSE_TIMEOUT = -92,    /* no reply within 25 seconds */
    RTSP_SEND_FAILED = -93,         /* sending failed; a step of the automatic connection failed */
    RTSP_REQUEST_NOT_BUILT = -94,   /* the request could not be generated */
    RTSP_NOT_CONNECTED = -95,       /* no RTSP connection */
    RTSP_INVALID_HEADER_LIST = -96, /* a user header is not acceptable; a client port is taken */
    RTSP_HEADER_NAME = -97,         /* the header name is in the list already, or not in it */
    RTSP_NO_MEMORY = -98,           /* memory could not be allocated */
    RTSP_INVALID_ARGUMENT = -99     /* null, out of range, not a live handle, no such stream */
};

/** What a client has reached. A 200 reply to the method named first leads there; TEARDOWN leads back to 0. */
enum RTSPClientState {
    CLIENT_INIT_STATE = 0,          /* created or torn down; DESCRIBE is allowed */
    CLIENT_OPTIONS_SENT_STATE = 1,  /* OPTIONS; DESCRIBE is allowed */
    CLIENT_DESCRIBE_SENT_STATE = 2, /* DESCRIBE; SETUP is allowed */
    CLIENT_READY_STATE = 3,         /* SETUP; SETUP and PLAY are allowed */
    CLIENT_PLAYING_STATE = 4,       /* PLAY; PLAY, PAUSE and TEARDOWN are allowed */
    CLIENT_PAUSE_STATE = 5          /* PAUSE of the last playing stream; PLAY and TEARDOWN are allowed */
};

/** How RTP is carried: dataProto of RTSPClientConnect. */
enum DataProto {
    DATA_PROTO_UDP = 0, /* UDP unicast, or multicast when the server's SETUP reply says so */
    DATA_PROTO_TCP = 1  /* interleaved in the RTSP connection (RFC 2326, 10.12) */
};

/** RTSP methods (RFC 2326, 10). TEARDOWN is 4 and PAUSE is 5. Only rtsptap_extended.h sends GET_PARAMETER. */
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
    RTP_CODEC_H264 = 100,          /* H.264 video */
    RTP_CODEC_MP4V_ES = 101,       /* MPEG-4 visual */
    RTP_CODEC_JPEG = 102,          /* motion JPEG */
    RTP_CODEC_MP2T = 103,          /* MPEG-2 transport stream */
    RTP_CODEC_PCMA = 200,          /* G.711 A-law */
    RTP_CODEC_PCMU = 201,          /* G.711 mu-law */
    RTP_CODEC_L16 = 202,           /* linear samples of 16 bits */
    RTP_CODEC_MPEG4_GENERIC = 203, /* AAC */
    RTP_CODEC_G726 = 204,          /* G.726, any bit rate */
    RTP_CODEC_MPA = 205            /* MPEG audio */
};

/** The fixed RTP header (RFC 3550, 5.1). */
typedef struct RTPHeader {
    uint8_t version : 2,     /* always 2 */
        padding : 1,         /* padding at the end of the packet, not counted in payloadLength */
        extension : 1,       /* a header extension: see extensionData */
        csrcCount : 4;       /* entries of csrc */
    uint8_t marker : 1,      /* meaning by codec: end of a video frame, start of a talkspurt */
        payloadType : 7;     /* 0, 8, 10, 11, 14, 26, 33 or 96 to 127; others are dropped */
    uint16_t sequenceNumber; /* +1 per packet, modulo 65536 */
    uint32_t timestamp;      /* sampling time in units of the stream's clock rate */
    uint32_t ssrc;           /* who sends the stream */
    uint32_t csrc[16];       /* who contributed to it; the first csrcCount are filled */
} RTPHeader;

/** One received RTP packet. A malformed packet is handed out as its own header describes it: check
 *  payloadLength against packetLength before reading the payload. Never write to a packet. */
typedef struct RTPStreamData {
    int32_t codecType;          /* RTPCodecType of its stream */
    RTPHeader *rtpHeader;       /* the parsed header, never null */
    uint32_t payloadLength;     /* bytes of payload: the packet less header, extension and padding, in 32 bits;
                                   headers that claim more than the packet holds wrap it above packetLength */
    uint8_t *payload;           /* first byte of payload, inside packetData */
    uint16_t extensionLength;   /* bytes of the header extension as its length field says; 0 without one */
    uint16_t extensionProfile;  /* the word that the profile defines (RFC 3550, 5.3.1); 0 without extension */
    uint8_t *extensionData;     /* the extension, bytes that did not arrive are 0; null without one */
    uint32_t packetLength;      /* bytes at packetData: the datagram as far as stored, or the frame's body */
    uint8_t *packetData;        /* the whole packet, in the stream's receive buffer */
    uint32_t lossFlag;          /* 1: it did not follow the number that arrived before it (UDP only), else 0. Not
                                   a loss where packets change places: a late one has it, and the next one, too */
    uint32_t packetIndex;       /* running number over all streams of the client; starts at 2 after a
                                   connect, at 1 without RTSP */
    struct RTPStreamData *next; /* the library's; do not follow */
    struct RTPStreamData *prev; /* the library's; do not follow */
} RTPStreamData;

/** What the session description (RFC 4566) says of one stream. Fields it says nothing of are 0 or null. */
typedef struct RTSPStreamDescription {
    uint8_t isVideo;         /* 0: an audio stream (m=audio); 1: any other */
    char encodingName[33];   /* a=rtpmap, as spelled there */
    int32_t codecType;       /* RTPCodecType; 0 for any other encoding, and without a=rtpmap: cannot be read */
    int32_t payloadNumber;   /* a=rtpmap: RTP payload type */
    int32_t clockRate;       /* a=rtpmap: RTP timestamp units per second */
    double frameRate;        /* a=framerate: frames per second */
    int32_t channels;        /* a=rtpmap: audio channels; 0 also where they are left out because there is one */
    int32_t bandwidth;       /* b=: the number as it stands, kbit/s for b=AS */
    int32_t fmtpLength;      /* characters of fmtp */
    char *fmtp;              /* a=fmtp: payload type and format parameters */
    uint8_t *sps;            /* H.264 sequence parameter set: the NAL unit without start code (RFC 6184, 8.1) */
    int32_t spsSize;         /* bytes of sps */
    uint8_t *pps;            /* H.264 picture parameter set, likewise */
    int32_t ppsSize;         /* bytes of pps */
    uint8_t *aacConfig;      /* AAC: the AudioSpecificConfig of "config=" (RFC 3640, 4.1) */
    int32_t aacConfigSize;   /* bytes of aacConfig */
    int32_t aacObjectType;   /* read from aacConfig, as the next two: audio object type, 2 for AAC-LC. Of
                                HE-AAC these are the core layer's */
    int32_t aacSamplingRate; /* read from aacConfig: Hz */
    int32_t aacChannels;     /* read from aacConfig: channel configuration */
} RTSPStreamDescription;

/* ---- clients ---- */

/**
 * Makes a client: not connected, state CLIENT_INIT_STATE. RTSPClientDestroy releases it.
 *
 * @return its handle; RTSP_NO_MEMORY; RTSP_MUTEX_FAILED, RTSP_LOCK_FAILED, RTSP_UNLOCK_FAILED when the system
 *         refuses a lock. After a failure nothing is left behind.
 */
RTSPTAP_API intptr_t RTSPClientCreate(void);

/**
 * Asks whether a handle is a live client's. Never waits for another client's exchange.
 *
 * @return 0 live; RTSP_FAILURE not
 */
RTSPTAP_API int32_t ValidateRTSPClientHandle(intptr_t clientHandle);

/**
 * Ends a client in whatever state it is: closes its sockets, waits for its threads and releases everything it
 * owns, queued packets and descriptions included.
 *
 * It sends nothing to the server, which keeps the session until its own time-out: tear down first if you can.
 * Free the packets you hold before: afterwards RTPClientFreeRTPStreamData can only refuse them. No other call
 * on this client may be running.
 *
 * @return 0; RTSP_INVALID_ARGUMENT handle 0; RTSP_NO_SUCH_CLIENT not a live client, also the second time
 */
RTSPTAP_API int32_t RTSPClientDestroy(intptr_t clientHandle);

/**
 * Sets the largest datagram or interleaved frame that is received whole. A longer datagram is delivered cut to
 * this size. A longer frame is not read, and with it are lost the frames behind it, until a frame header lies
 * where one is looked for. Both print a line.
 *
 * RTSPClientConnect and StartThirdPartyClient set 33000 again: call it after them. Takes effect from the next
 * packet. A receive buffer that holds packets is full when it has no more room than this.
 *
 * @param mtuSize  bytes, above 100; there is no upper limit
 * @return 0; RTSP_INVALID_ARGUMENT bad handle, or 100 and less
 */
RTSPTAP_API int32_t RTSPClientSetMTUSize(intptr_t clientHandle, uint32_t mtuSize);

/* ---- header lists ----
 *
 * A method sends CSeq, User-Agent, Authorization when the server asked for it, then the headers it needs:
 *
 *     DESCRIBE                     Accept: application/sdp
 *     SETUP of streams 2, 3, ...   Session
 *     SETUP                        Transport, at the very end
 *     PLAY                         Range: npt=0.000-, Session
 *     PAUSE, TEARDOWN              Session
 *
 * A list passed to the method gives its own values for those and adds the rest in list order; a CSeq or an
 * Authorization of the list is sent beside the library's. Header names are case-sensitive here. A method refuses
 * with RTSP_INVALID_HEADER_LIST a name that is not one of RTSP 1.0's (unless added as custom), a header that is not
 * allowed for the method, and a value that is not well formed (custom headers are spared this last test):
 *
 *     Cache-Control, Conference, Transport           SETUP only
 *     Content-Encoding, Content-Language, Expires    DESCRIBE only
 *     If-Modified-Since                              DESCRIBE and SETUP
 *     Range                                          PLAY and PAUSE; begins with npt=, smpte= or clock=
 *     Scale                                          PLAY only; a number other than 0
 *     Blocksize                                      not OPTIONS, not TEARDOWN
 *     Session                                        not OPTIONS
 *
 * An empty list is as good as none. A list may serve any number of calls, of one thread at a time.
 */

/**
 * Makes an empty list. RTSPDestroyHeaderList releases it.
 *
 * @return its handle; RTSP_NO_MEMORY
 */
RTSPTAP_API intptr_t RTSPCreateHeaderList(void);

/**
 * Adds a header at the end of the list. Name and value are copied.
 *
 * A name that is in the list already is refused, with one exception: in a list of two or more headers the last
 * one may be repeated.
 *
 * @param isCustom  not 0: the name need not be one of RTSP 1.0's, and the value is not examined
 * @return 0; RTSP_INVALID_ARGUMENT null handle, name or value; RTSP_HEADER_NAME in the list already;
 *         RTSP_NO_MEMORY, the list is then as before
 */
RTSPTAP_API int32_t RTSPAddHeaderToList(intptr_t headerList, const char *headerName, const char *headerValue,
                                        uint8_t isCustom);

/**
 * Removes the first header of that name. The handle stays good, also when the list becomes empty.
 *
 * @return 0, also when a list with other headers does not have that name; RTSP_HEADER_NAME the list is empty;
 *         RTSP_INVALID_ARGUMENT null handle or name
 */
RTSPTAP_API int32_t RTSPRemoveHeaderFromList(intptr_t headerList, const char *headerName);

/**
 * Replaces the value of the first header of that name. It keeps its place and stays custom or not.
 *
 * @return 0; RTSP_HEADER_NAME not in the list; RTSP_INVALID_ARGUMENT null handle, name or value;
 *         RTSP_NO_MEMORY, the header then has no value: give it one or remove it
 */
RTSPTAP_API int32_t RTSPModifyHeaderInList(intptr_t headerList, const char *headerName, const char *headerValue);

/**
 * Releases the list with its headers. The handle is dead afterwards and must not be used again.
 *
 * @return 0; RTSP_INVALID_ARGUMENT handle 0
 */
RTSPTAP_API int32_t RTSPDestroyHeaderList(intptr_t headerList);

/* ---- RTSP ----
 *
 * A method function is one exchange: it checks its arguments and the client's state, sends one request, waits
 * for one reply and acts on it. What all of them share:
 *
 * The header list may be 0. responseSize and responseBuff receive the raw reply: *responseSize is the room in
 * responseBuff on entry and the length of the reply on return. The reply gets no terminating NUL. Either may be
 * null: without responseBuff only the length is stored, without responseSize nothing. Only a call that ends in
 * RTSP_SUCCESS hands out its reply; RTSPClientGetLastReply has it in any case.
 *
 * The server's answer becomes one of
 *
 *     RTSP_SUCCESS             200; also 1xx and other 2xx, which change nothing in the client
 *     RTSP_REDIRECTED          3xx; the library does not follow
 *     RTSP_UNAUTHORIZED        401 to OPTIONS or DESCRIBE: call the same function again, see below
 *     RTSP_CLIENT_ERROR        other 4xx, and 401 to any other method
 *     RTSP_SERVER_ERROR        5xx and above
 *
 * and what goes wrong before or beside it one of
 *
 *     RTSP_INVALID_ARGUMENT    bad handle, or no such stream
 *     RTSP_NOT_CONNECTED       RTSPClientConnect first
 *     RTSP_INVALID_STATE       not allowed in this state (OPTIONS always is), see RTSPClientState
 *     RTSP_INVALID_HEADER_LIST a header is not acceptable for the method
 *     RTSP_REQUEST_NOT_BUILT   no memory for the request
 *     RTSP_SEND_FAILED         no memory for the text of the request. A broken connection shows as one of the
 *                              next two, since the reply is awaited all the same.
 *     RTSP_NO_RESPONSE         the server closed the connection, or reading failed
 *     RTSP_RESPONSE_TIMEOUT    no reply within 25 seconds. One that comes later may be taken for the answer to
 *                              the next request: CSeq is not compared.
 *     RTSP_BAD_RESPONSE        the reply is no RTSP reply
 *     RTSP_SMALL_BUFFER        the reply is longer than *responseSize, which now holds the length needed. What
 *                              the reply does to client and streams has happened all the same (but see
 *                              DESCRIBE and SETUP).
 *
 * "An exchange's results" below means these. A reply is taken as one read brings it; only DESCRIBE reads twice.
 *
 * Passwords. A 401 to OPTIONS or DESCRIBE stores the challenge; from then on every request carries an
 * Authorization header (RFC 2617, digest with MD5), so the same call again answers it. Name and password come
 * from RTSPClientAutoRTSPConnect and are empty before its first call. To go method by method with a password, let
 * it stop where it has connected and stored them, at a header that OPTIONS refuses; nothing has been sent then:
 *
 *     intptr_t refused = RTSPCreateHeaderList();
 *     RTSPAddHeaderToList(refused, "Range", "npt=0.000-", 0);
 *     int32_t result = RTSPClientAutoRTSPConnect(client, "10.0.0.5", 554, "live", "admin", "secret",
 *                                                DATA_PROTO_UDP, refused, 0, 0, 0, 0, NULL, NULL);
 *     RTSPDestroyHeaderList(refused);
 *     if (result != RTSP_SEND_FAILED) return result; // not connected
 *
 * Keeping a session alive. Servers end sessions that are silent, many after 60 seconds. Receiver reports count
 * as a sign of life with most; the request to repeat is PLAY, which is cheap while playing. Its default Range
 * starts recorded media again from the beginning: give it a Range of "npt=now-". Not OPTIONS: it puts the client
 * into CLIENT_OPTIONS_SENT_STATE, also out of a playing session, which can then only be destroyed.
 */

/**
 * Opens the control connection (TCP) and takes down how RTP is to come. No request is sent, the state stays.
 *
 * Set the buffer sizes first (RTPClientSetAudioVideoBufferSize). Blocks until the system gives up. A torn-down
 * client connects again with this. On a client that is connected it opens another connection and uses that; the
 * old one stays open until RTSPClientDestroy. Sets the MTU to 33000 and starts the packet numbers again.
 *
 * @param serverIp     dotted IPv4 address, at most 31 characters
 * @param serverPort   the server's RTSP port, usually 554, not 0
 * @param sessionName  the path of the URL without its leading "/", at most 63 characters
 * @param dataProto    DATA_PROTO_UDP or DATA_PROTO_TCP
 * @param mtuCallBack  kept for the client, never called; give 0
 * @return 0; RTSP_INVALID_ARGUMENT bad handle or argument, or no buffer sizes yet; RTSP_SOCKET_FAILED no socket;
 *         RTSP_CONNECT_FAILED refused, unreachable, or not an address
 */
RTSPTAP_API int32_t RTSPClientConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort,
                                      const char *sessionName, uint32_t dataProto, intptr_t mtuCallBack);

/**
 * Asks what the server can do (RFC 2326, 10.1). Optional: DESCRIBE may come first.
 *
 * Allowed in every state; a 200 leads to CLIENT_OPTIONS_SENT_STATE from each of them, so do not send it to a
 * session that is set up or playing. The answer (the Public header) is in the raw reply.
 *
 * @return an exchange's results, without RTSP_INVALID_STATE
 */
RTSPTAP_API int32_t RTSPClientSendOptionsRequest(intptr_t clientHandle, intptr_t optionsHeaderList,
                                                 char *responseBuff, int32_t *responseSize);

/**
 * Fetches the session description (RFC 2326, 10.2; RFC 4566) and makes a stream of each m= section.
 *
 * Allowed in CLIENT_INIT_STATE and CLIENT_OPTIONS_SENT_STATE; a 200 leads to CLIENT_DESCRIBE_SENT_STATE, which
 * stands even if the description then proves unusable. When the reply arrives in two pieces, both are put into
 * responseBuff one after the other; a third is not read.
 *
 * A malformed attribute ends the reading of the description, and so does a b= line without a number of its own
 * (b=TIAS, b=RR:0): streams up to there are usable and the result is 0 or, for some, RTSP_BAD_RESPONSE. Compare
 * RTSPClientGetNbStreams with what you expect. A client whose description failed cannot DESCRIBE again: destroy
 * it. After RTSP_SMALL_BUFFER the call may be repeated while RTSPClientGetNbStreams gives 0; with streams, only
 * the copy of the reply is missing.
 *
 * @return an exchange's results; RTSP_BAD_NUMBER Content-Length is not a number above 0; RTSP_BAD_RESPONSE also
 *         when the description cannot be parsed; RTSP_NO_MEMORY
 */
RTSPTAP_API int32_t RTSPClientSendDescribeRequest(intptr_t clientHandle, intptr_t describeHeaderList,
                                                  char *responseBuff, int32_t *responseSize);

/**
 * The number of streams in the description: 0 before DESCRIBE and after TEARDOWN.
 *
 * @return the number; RTSP_INVALID_ARGUMENT bad handle; RTSP_NOT_CONNECTED
 */
RTSPTAP_API int32_t RTSPClientGetNbStreams(intptr_t clientHandle);

/**
 * What the description says of a stream. The block and what it points to belong to the client and stay valid
 * until RTSPClientDestroy, also past TEARDOWN and another DESCRIBE.
 *
 * @param streamCount  number of the stream, from 1
 * @return the block; null for a bad handle or number, or when the client is not connected
 */
RTSPTAP_API RTSPStreamDescription *RTSPClientGetSDPInfo(intptr_t clientHandle, int32_t streamCount);

/**
 * Copies the value of one line of the description: what stands after its "=".
 *
 * @param streamCount   number of the stream whose m= section is searched, or 0 for the lines before the first
 * @param sdpFieldName  the line's letter: the first such line is taken. For a stream also "a=text": the first
 *                      line of any letter whose value contains the text, as "a=fmtp". Before the first m= line
 *                      there is no such search.
 * @param sdpFieldValue receives the value with its NUL
 * @param sdpFieldSize  in: room at sdpFieldValue; out: length of the value with its NUL
 * @return 0; RTSP_FAILURE no such line; RTSP_SMALL_BUFFER *sdpFieldSize now holds the size needed;
 *         RTSP_INVALID_ARGUMENT bad handle or stream number, null argument; RTSP_NOT_CONNECTED
 */
RTSPTAP_API int32_t RTSPClientGetSDPFieldInfo(intptr_t clientHandle, int32_t streamCount, const char *sdpFieldName,
                                              char *sdpFieldValue, uint32_t *sdpFieldSize);

/**
 * Sets up one stream (RFC 2326, 10.4): agrees with the server on ports, multicast group or channels.
 *
 * Allowed in CLIENT_DESCRIBE_SENT_STATE and CLIENT_READY_STATE; a 200 leads to the latter before its headers
 * are examined, so a failure past that point leaves the state there: set the stream up again.
 *
 * Over UDP two local ports are bound first: the next free pair, or the client_port of your Transport header,
 * which then also is where the search for the next pair goes on. The server may answer with a multicast group,
 * which is joined. Over TCP streams take channels 0-1, 2-3, ... unless the server names others (RFC 2326, 10.12);
 * leave out streams only at the end, since one without a SETUP takes channels 0-1 from those behind it.
 *
 * A Transport header is used once: it is removed from setupHeaderList, so that the list can serve the next
 * stream. It must have RTP/AVP, unicast or multicast, and client_port= (UDP) or interleaved= (TCP).
 *
 * @param streamCount  number of the stream, from 1
 * @return an exchange's results (401 gives RTSP_CLIENT_ERROR);
 *         RTSP_SOCKET_FAILED no socket; RTSP_INVALID_HEADER_LIST also when a port is taken: the one you asked
 *         for, or the RTCP port of any pair (that passes: the same call again tries the next pair);
 *         RTSP_BAD_NUMBER client_port= or server_port= has no number;
 *         RTSP_BAD_RESPONSE also for a session identifier or multicast address that is too long;
 *         RTSP_MULTICAST_FAILED group or port missing, or the group cannot be joined; RTSP_NO_MEMORY.
 *         After RTSP_SMALL_BUFFER the stream has no RTP socket: set it up again.
 */
RTSPTAP_API int32_t RTSPClientSendSetupRequest(intptr_t clientHandle, int32_t streamCount, intptr_t setupHeaderList,
                                               char *responseBuff, int32_t *responseSize);

/**
 * Starts or resumes delivery (RFC 2326, 10.5), and the threads that receive it.
 *
 * Allowed in CLIENT_READY_STATE, CLIENT_PLAYING_STATE and CLIENT_PAUSE_STATE; a 200 leads to
 * CLIENT_PLAYING_STATE. Repeating it while playing keeps the session alive; packets already queued or held are
 * not touched and none is missed. Nothing tells when a stream dries up: packets just stop coming.
 *
 * @param streamCount  number of the stream, or 0 for all of them
 * @return an exchange's results; RTSP_INVALID_SESSION the reply is for another session, whatever its status
 */
RTSPTAP_API int32_t RTSPClientSendPlayRequest(intptr_t clientHandle, int32_t streamCount, intptr_t playHeaderList,
                                              char *responseBuff, int32_t *responseSize);

/**
 * Halts delivery (RFC 2326, 10.6). Queued packets stay and can be taken; PLAY goes on from there.
 *
 * Allowed in CLIENT_PLAYING_STATE. A 200 leads to CLIENT_PAUSE_STATE once no stream is playing any more.
 *
 * @param streamCount  number of the stream, or 0 for all of them
 * @return an exchange's results; RTSP_INVALID_SESSION the reply is for another session, whatever its status.
 *         A stream number that is too large is found before a missing connection; with PLAY it is the reverse.
 */
RTSPTAP_API int32_t RTSPClientSendPauseRequest(intptr_t clientHandle, int32_t streamCount, intptr_t pauseHeaderList,
                                               char *responseBuff, int32_t *responseSize);

/**
 * Ends the session (RFC 2326, 10.7): on 200, closes connection and sockets and waits for the threads.
 *
 * Allowed in CLIENT_PLAYING_STATE and CLIENT_PAUSE_STATE; a 200 leads to CLIENT_INIT_STATE. A session that is
 * only set up cannot be torn down, only destroyed, and then lives on in the server until its time-out.
 * Afterwards the client has no streams: packets still queued are gone, those already taken are good until freed,
 * and with the last of them goes the receive buffer. Connect to use the client again.
 *
 * @return an exchange's results; RTSP_INVALID_SESSION the reply is for another session, whatever its status.
 *         After RTSP_SMALL_BUFFER the session has ended; after any other failure it goes on.
 */
RTSPTAP_API int32_t RTSPClientSendTeardownRequest(intptr_t clientHandle, intptr_t teardownHeaderList,
                                                  char *responseBuff, int32_t *responseSize);

/**
 * From created to playing in one call: connect, OPTIONS, DESCRIBE, SETUP of every stream, PLAY of all.
 *
 * A 401 to OPTIONS or DESCRIBE is answered once with user name and password. setupHeaderList is for the first
 * stream only. After success responseBuff holds the reply to PLAY; every step before used it too.
 * Nothing is undone on failure: the client stays where the last good step left it, and can be used on from
 * there or destroyed. The failed step has printed its own line.
 *
 * @param username  at most 127 characters, the rest is cut; null stands for an empty text
 * @param password  likewise
 * @return 0; RTSP_INVALID_ARGUMENT bad handle or dataProto, null address or session name, port 0;
 *         RTSP_NOT_CONNECTED connecting failed, for any reason that RTSPClientConnect has; RTSP_SEND_FAILED any
 *         later step failed
 */
RTSPTAP_API int32_t RTSPClientAutoRTSPConnect(intptr_t clientHandle, const char *serverIp, uint16_t serverPort,
                                              const char *sessionName, const char *username, const char *password,
                                              uint32_t dataProto, intptr_t optionsHeaderList,
                                              intptr_t describeHeaderList, intptr_t setupHeaderList,
                                              intptr_t playHeaderList, intptr_t mtuCallBack, char *responseBuff,
                                              int32_t *responseSize);

/**
 * Copies the raw reply to the client's last request: also one whose status made the method fail, so that 404 can
 * be told from 454, and headers be read that no function hands out. A description in two pieces counts with the
 * first. A request that got no reply leaves none.
 *
 * @param responseBuff  receives the reply, without a NUL behind it; null: only the length is asked for
 * @param responseSize  in: room in responseBuff; out: length of the reply
 * @return 0; RTSP_FAILURE there is none; RTSP_SMALL_BUFFER *responseSize now holds the size needed;
 *         RTSP_INVALID_ARGUMENT bad handle, null responseSize
 */
RTSPTAP_API int32_t RTSPClientGetLastReply(intptr_t clientHandle, char *responseBuff, int32_t *responseSize);

/**
 * The SSRC of a stream's sender (RFC 3550, 3), as its first packet gave it.
 *
 * @param streamCount  number of the stream, from 1
 * @param ssrc         receives it; 0 before the first packet
 * @return 0; RTSP_FAILURE the stream does not exist after all; RTSP_INVALID_ARGUMENT bad handle or number, null
 *         ssrc; RTSP_NOT_CONNECTED
 */
RTSPTAP_API int32_t RTSPClientGetSSRC(intptr_t clientHandle, int32_t streamCount, uint32_t *ssrc);

/* ---- packets ----
 *
 * Each stream has a queue, filled by a thread of the library and emptied by one thread of the program. Payloads
 * are not copied: they lie in the stream's receive buffer until the packet is freed. While the buffer is full
 * the library does not receive: over UDP the system then drops what it cannot hold, over TCP the frames that
 * find it full are lost, and more behind them until a frame header lies where one is looked for.
 *
 * Over UDP packets are put in order as they arrive, by up to 499 numbers back into what is still queued. From
 * 1024 queued packets on the oldest ones are dropped. Packets are taken from whoever sends them; a datagram
 * without content ends the receiving of its stream until the next PLAY. A header extension that claims more than
 * arrived takes memory, too: beyond the size of the receive buffer for all of a stream's, its packet is refused.
 */

/**
 * Takes the oldest packet of the stream that carries codecType.
 *
 * Waits while the queue is empty: until that stream's next datagram or frame has been handled, at most about
 * 5 seconds. The caller owns the packet and gives it back with RTPClientFreeRTPStreamData, in the order taken,
 * because its payload lies in the stream's receive buffer. One reading thread per stream.
 *
 * @param streamData  receives the packet; left alone when no stream has that codec, so set it to null before
 * @return 0, also when no stream has that codec; RTSP_FAILURE no packet (after the wait), or held back by the
 *         latency settings (at once: sleep before asking again); RTSP_INVALID_ARGUMENT bad handle or codec, null
 *         streamData
 */
RTSPTAP_API int32_t RTPClientGetRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData, int32_t codecType);

/**
 * Shows the oldest packet and leaves it in the queue. Waits and answers like RTPClientGetRTPStreamData.
 *
 * The packet stays the queue's: do not free it, and do not use it after the next peek or get on that stream. After
 * a TEARDOWN it is good until the next one, or until RTSPClientDestroy.
 *
 * @param streamData  receives the packet; left alone when no stream has that codec, so set it to null before
 * @return as RTPClientGetRTPStreamData
 */
RTSPTAP_API int32_t RTPClientPeekRTPStreamData(intptr_t clientHandle, RTPStreamData **streamData,
                                               int32_t codecType);

/**
 * Gives a packet back, and with it the space in the receive buffer up to its end. Packets of a stream go back in
 * the order they were taken: freeing a later one first lets the payload of the earlier be overwritten.
 *
 * Also good after TEARDOWN. After RTSPClientDestroy the packet cannot be freed any more. With a codec that is not
 * the packet's own it goes back to its stream all the same; on a client that is not its own, its space stays taken.
 *
 * @param codecType  the packet's own, packet->codecType
 * @return 0; RTSP_INVALID_ARGUMENT bad handle or codec, null packet
 */
RTSPTAP_API int32_t RTPClientFreeRTPStreamData(intptr_t clientHandle, RTPStreamData *streamData, int32_t codecType);

/**
 * Sets how much media a queue may hold before it is held back or cut. All 0, the default, switches this off.
 *
 * The span of a queue is the difference of the timestamps of its ends. Up to the underflow limit get and peek
 * give nothing; when a new packet would bring it above the overflow limit, the oldest packets are dropped until
 * it is down to the target. All of it only while the target is not 0.
 *
 * A millisecond counts as 90 timestamp units in every stream. For a codec with a clock of 8 kHz a setting of
 * 100 therefore means 1125 ms.
 *
 * @param tLInMS  target latency, 0 or more
 * @param uFInMS  underflow limit, 0 to tLInMS
 * @param oFInMS  overflow limit, tLInMS or more
 * @return 0; RTSP_INVALID_ARGUMENT bad handle, or values that do not fit together
 */
RTSPTAP_API int32_t RTPClientConfigLatency(intptr_t clientHandle, int32_t tLInMS, int32_t uFInMS, int32_t oFInMS);

/**
 * Sets the sizes of the receive buffers, one for each stream. Needed before RTSPClientConnect; the values count
 * when PLAY starts the receiving, later changes do not disturb it.
 *
 * Room for a second of media is a good size: a few hundred kilobytes to a few megabytes for video. A buffer below
 * the MTU (33000) holds one packet at a time; one that memory has no room for leaves its stream without packets.
 *
 * @param videoBufferSize  bytes for each stream that is not audio; connect wants at least 1
 * @param audioBufferSize  bytes for each audio stream; connect wants at least 1
 * @return 0; RTSP_INVALID_ARGUMENT bad handle, negative size
 */
RTSPTAP_API int32_t RTPClientSetAudioVideoBufferSize(intptr_t clientHandle, int32_t videoBufferSize,
                                                     int32_t audioBufferSize);

/**
 * The number of packets in the queue of the stream that carries codecType.
 *
 * Once a queue has overflowed its 1024 packets the number falls behind the truth and can become negative; only
 * a fresh stream counts right again. Do not take such a number for an error.
 *
 * @return the number; RTSP_FAILURE no stream has that codec; RTSP_INVALID_ARGUMENT bad handle or codec
 */
RTSPTAP_API int32_t RTPClientGetNbOfPktInBuffer(intptr_t clientHandle, int32_t codecType);

/**
 * The packetIndex of the oldest packet in the queue of the stream that carries codecType. Here 0 is failure.
 *
 * @return the index; 0 nothing is queued, no stream has that codec, bad handle or codec
 */
RTSPTAP_API int32_t RTPClientGetStreamPktCount(intptr_t clientHandle, int32_t codecType);

/**
 * How far the audio timestamps are ahead of the video's, by the last sender report of each (RFC 3550, 6.4.1):
 * the audio timestamp converted to 90 kHz less the video timestamp, in 32-bit arithmetic. For the client's last
 * AAC stream and its last H.264 stream.
 *
 * @param codecType       RTP_CODEC_MPEG4_GENERIC; with any other codec tsOffset is left alone
 * @param tsOffset        receives the difference; before the first reports the timestamps count as 0
 * @param audioClockRate  timestamp units per second of the audio stream; 0 takes the audio timestamp as 0
 * @return 0; RTSP_FAILURE the client has neither stream, or codecType is one of the two and the other is
 *         missing; RTSP_INVALID_ARGUMENT bad handle or codec, null tsOffset where it would be written
 */
RTSPTAP_API int32_t RTPClientGetTSOffset(intptr_t clientHandle, int32_t codecType, uint32_t *tsOffset,
                                         int32_t audioClockRate);

/* ---- receiving without RTSP ---- */

/**
 * Receives RTP that somebody sends to UDP ports of this machine. No RTSP, no RTCP; the client is created and
 * nothing else. Packets are taken as usual, until RTSPClientDestroy.
 *
 * @param adVdFlag            1 video, 2 audio, 3 transport stream, 0 video and audio. Any other value is checked
 *                            like 0 and succeeds, but receives nothing.
 * @param videoOrTsCodecName  RTP_CODEC_H264 to RTP_CODEC_JPEG for video, RTP_CODEC_MP2T for a transport stream
 * @param videoOrTsPort       local port, not 0
 * @param videoBufferSize     bytes of its receive buffer, at least 1
 * @param audioCodecName      RTP_CODEC_PCMA to RTP_CODEC_MPA
 * @param audioPort           local port, not 0
 * @param audioBufferSize     bytes of its receive buffer, at least 1. Arguments of a medium that the flag leaves
 *                            out are not examined, except that no buffer size may be negative.
 * @param tLInMS              as in RTPClientConfigLatency, as the next two
 * @param uFInMS              underflow limit
 * @param oFInMS              overflow limit
 * @return 0, for a transport stream also when its port is taken; RTSP_INVALID_ARGUMENT bad handle, codec, port
 *         or size; RTSP_FAILURE bad latency values or negative size, port taken, no socket, no memory
 */
RTSPTAP_API int32_t StartThirdPartyClient(intptr_t clientHandle, int32_t adVdFlag, int32_t videoOrTsCodecName,
                                          uint16_t videoOrTsPort, int32_t videoBufferSize, int32_t audioCodecName,
                                          uint16_t audioPort, int32_t audioBufferSize, int32_t tLInMS,
                                          int32_t uFInMS, int32_t oFInMS);

/**
 * Adds one such stream to a client: a UDP socket on every local address, and a thread that receives from it.
 * StartThirdPartyClient does this; call it for a third stream or a codec that it refuses. The buffer sizes must
 * be set. A stream that failed counts on, dead, in the client.
 *
 * @param codecType  RTPCodecType, what to ask for it by
 * @param port       local port, not 0
 * @param isVideo    1 takes the video buffer size, all else the audio buffer size; the description has it as given
 * @return 0; RTSP_INVALID_ARGUMENT bad handle or port 0; RTSP_FAILURE port taken, no socket, no memory;
 *         RTSP_MUTEX_FAILED no lock
 */
RTSPTAP_API int32_t CreateRTPStream(intptr_t clientHandle, int32_t codecType, uint16_t port, uint8_t isVideo);

/* ---- printers ----
 *
 * What the library prints its lines with. They add no line end. Any thread may call them.
 */

/** Prints nothing, whatever the level: the place where the library notes what it is doing. */
RTSPTAP_API void RtpRtspDebugPrint(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/**
 * Prints "!!!ERROR!!! : " and the message, cut after 1023 characters, on standard output.
 *
 * @return what printf returns: characters printed, the prefix included; 0 for a null format
 */
RTSPTAP_API int RtpRtspErrorPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));

/** The same with "!!!INFO!!! : ". */
RTSPTAP_API int RtpRtspInfoPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- platform wrappers ----
 *
 * The library's own way to threads, locks, time and sockets. 0 is success and RTSP_FAILURE (-1) failure unless
 * said otherwise; null objects and thread id 0 are failures. A program may have functions of its own under these
 * names: the library goes on calling its own. The calls on mutexes fail on any error of the system, those
 * on condition variables never report one except the end of a wait.
 */

/** Starts a joinable thread with default attributes. Give its id to WaitForThreadCompletion or ThreadDetach. */
RTSPTAP_API int ThreadCreate(pthread_t *threadId, void *(*startRoutine)(void *), void *argument);

/** Ends the calling thread, unwinding its frames. The status is not handed on: what a joiner gets means nothing. */
RTSPTAP_API void ThreadExit(int status) __attribute__((noreturn));

/** Lets a thread clean up after itself; it cannot be waited for any more. */
RTSPTAP_API int ThreadDetach(pthread_t threadId);

/** Waits until a thread has ended. Once for each thread. */
RTSPTAP_API int WaitForThreadCompletion(pthread_t threadId);

/** Ignores SIGPIPE in the whole process: writing to a closed connection becomes an error. */
RTSPTAP_API void HandleSignal(void);

/** The wall clock in milliseconds since 1970. */
RTSPTAP_API uint64_t GetTimeValue(void);

/** The wall clock in seconds since 1970 and microseconds (below 1000000). Either may be null. */
RTSPTAP_API int GetPresentTimeInSec(uint32_t *seconds, uint32_t *microseconds);

/** Makes a mutex with default attributes. On failure prints why, on standard output and standard error. */
RTSPTAP_API int MutexInit(pthread_mutex_t *mutex);

/** Locks a mutex, waiting for it. */
RTSPTAP_API int MutexLock(pthread_mutex_t *mutex);

/** Unlocks a mutex. */
RTSPTAP_API int MutexUnlock(pthread_mutex_t *mutex);

/** Destroys an unlocked mutex. */
RTSPTAP_API int MutexDestroy(pthread_mutex_t *mutex);

/** Makes a condition variable with default attributes. */
RTSPTAP_API int InitConditionVar(pthread_cond_t *condition);

/** Wakes one waiter, if there is any. */
RTSPTAP_API int SignalOnConditionVar(pthread_cond_t *condition);

/**
 * Waits for a signal, at most about 5 seconds of the wall clock. The caller holds the mutex and checks what it
 * waited for: any wake-up counts, also one without a signal.
 *
 * @return 0 woken; RTSP_FAILURE nothing came in 5 seconds, with a line on standard output
 */
RTSPTAP_API int WaitForConditionVar(pthread_cond_t *condition, pthread_mutex_t *mutex);

/** Destroys a condition variable that nobody waits for. */
RTSPTAP_API int DestroyConditionVar(pthread_cond_t *condition);

/** Sleeps. RTSP_FAILURE when a signal ended the sleep early. */
RTSPTAP_API int MSecDelay(uint32_t milliseconds);

/**
 * Receives one datagram, again when a signal interrupts it. A datagram that does not fit is cut, and a line is
 * printed. Sender's address as in recvfrom; both arguments may be null.
 *
 * @return the datagram's full length, which may exceed len; negative with errno set on failure (EINVAL for a
 *         negative len)
 */
RTSPTAP_API int UDPSockRecv(int sockfd, void *buf, int len, struct sockaddr *srcAddr, socklen_t *srcAddrLen);

/**
 * Receives what a stream socket has, again when a signal interrupts it. Prints a line when it gets nothing.
 *
 * @return the number of bytes; 0 the peer closed; negative with errno set on failure
 */
RTSPTAP_API int TCPSockRecv(int sockfd, void *buf, int len);

/** Shuts a socket down in both directions, which wakes a thread that waits on it, and closes it. -1: nothing. */
RTSPTAP_API void CloseSock(int fd);

/** The same. Its result says nothing. */
RTSPTAP_API int CloseServerSock(int fd);

/**
 * Encodes bytes as base64 (RFC 4648, 4) with padding and without line ends.
 *
 * @param length   bytes at data, 0 or more
 * @param encoded  receives the text, which the caller releases with free(); null on failure
 * @return 0; RTSP_NO_MEMORY; RTSP_INVALID_ARGUMENT null argument or negative length
 */
RTSPTAP_API int Base64Encode(const uint8_t *data, int32_t length, char **encoded);

/* ---- supplied by the host process ---- */

/* Visible whatever the host compiles with: the library looks it up in the host's executable. */
#pragma GCC visibility push(default)

/**
 * Computes the response to a digest challenge (RFC 2617, 3.2.2). The library imports this function;
 * rtsptap::digest has a default for it, a definition in the program goes before it.
 *
 * Called during a method, on its thread, after a 401 had come. The library uses the form without quality of
 * protection: MD5(MD5(username:realm:password):nonce:MD5(method:uri)). The result is not looked at: on failure
 * leave the response empty.
 *
 * @param nonce       as the server gave it
 * @param cnonce      null
 * @param username    of RTSPClientAutoRTSPConnect, or empty
 * @param realm       as the server gave it
 * @param password    of RTSPClientAutoRTSPConnect, or empty
 * @param algorithm   "md5"
 * @param nonceCount  empty
 * @param method      of the request, such as "DESCRIBE"
 * @param qop         null
 * @param uri         exactly the request line's
 * @param response    zeroed, room for 512 bytes: receives 32 lower-case hexadecimal digits and a NUL
 * @return 0 done; negative not (the default: null response, or an algorithm or qop that it does not know)
 */
int GenerateDigestResponse(const char *nonce, const char *cnonce, const char *username, const char *realm,
                           const char *password, const char *algorithm, const char *nonceCount, const char *method,
                           const char *qop, const char *uri, char *response);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* RTSPTAP_H */
