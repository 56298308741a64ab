/* rtsptap, frames: whole access units (pictures, audio frames) from RTP packets. For programs that hand media to a
 * decoder or write them to a file. Same library, same conventions (see the head of rtsptap_extended.h, which also
 * says how headers grow); needs no client: packets may come from anywhere, in the order of their sequence numbers
 * as the library hands them out.
 *
 *     RTSPTapStreamDescription description;
 *     description.recordSize = sizeof description;
 *     RTSPTapGetStreamDescription(client, 1, &description);
 *     RTSPTapFrames *frames = RTSPTapFramesCreate(&description, RTSPTAP_FRAMES_STREAM, 0);
 *     for (each packet) {
 *         RTSPTapFramesAdd(frames, packet);    // copies what it needs: the packet can be given back
 *         RTSPTapFrame frame;
 *         frame.recordSize = sizeof frame;
 *         while (RTSPTapFramesNext(frames, &frame) == 0) fwrite(frame.data, 1, frame.size, file);
 *     }
 *     RTSPTapFramesDestroy(frames);
 *
 * One thread at a time per assembly.
 *
 * What pictures are (size, profile, frame rate, whether one is a key frame) is told without an assembly, too:
 * RTSPTapGetVideoFormat, RTSPTapLookIntoPacket.
 */
#ifndef RTSPTAP_FRAMES_H
#define RTSPTAP_FRAMES_H

#include "rtsptap_extended.h"

#ifdef __cplusplus
extern "C" {
#endif

/** How frames are framed. What is not named here is the same in both. */
enum RTSPTapFramesFormat {
    /** As a stream of bytes: H.264 and H.265 with start codes (Annex B), and with the parameter sets of the
     *  description before a key frame as long as the stream has brought none; AAC with ADTS headers (ISO/IEC
     * 14496-3, 1.A.2), which needs its config. */
    RTSPTAP_FRAMES_STREAM = 1,
    /** As files hold them: NAL units behind 4 bytes of length (ISO/IEC 14496-15), nothing added; AAC raw. */
    RTSPTAP_FRAMES_LENGTHS = 2
};

/** One access unit. */
typedef struct RTSPTapFrame {
    uint32_t recordSize; /* sizeof(RTSPTapFrame), set by the caller: the library fills no more than that */
    uint32_t size;       /* bytes of data, 1 and up */
    const uint8_t *data; /* good until the next call for this assembly */
    int64_t time; /* sampling time in units of the stream's clock rate, 0 for the first packet added; counts on
                     where the RTP timestamp wraps */
    uint32_t timestamp; /* the RTP timestamp; of the second and later audio frames in a packet, reckoned */
    int32_t isKey;      /* 1: decoding can begin here: IDR (H.264), IRAP (H.265), key frame (VP8), any JPEG or audio
                           frame */
    int32_t isDamaged;  /* 1: bytes of it are missing, or may be: packets were lost within it or just before it, or
                           it outgrew the largest frame */
    uint32_t lost;      /* packets that were lost since the frame before, by their sequence numbers */
    uint16_t firstSequence; /* sequence number of its first packet */
    uint16_t lastSequence;  /* and of its last one */
} RTSPTapFrame;

/** An assembly of frames from the packets of one stream. */
typedef struct RTSPTapFrames RTSPTapFrames;

/**
 * Makes an assembly for a stream: H.264 (RFC 6184), H.265 (RFC 7798), AAC (RFC 3640, without interleaving), JPEG
 * (RFC 2435, as JFIF files), VP8 (RFC 7741), and one frame a packet for Opus, G.711, G.722, G.723, G.726, G.729,
 * GSM, Speex, L8, L16, L20 and L24.
 *
 * @param description   of the stream: codecType, clockRate, fmtp, parameter sets and config are looked at and
 * copied
 * @param format        RTSPTapFramesFormat
 * @param largestFrame  bytes, up to 1073741824; 0: 8 MiB. What goes beyond is cut and marked damaged. An assembly
 * takes at most twice as much memory, and a little
 * @return the caller's, until RTSPTapFramesDestroy; null when the codec is none of these, AAC says what cannot be
 * read, an argument is bad or memory short
 */
RTSPTAP_API RTSPTapFrames *RTSPTapFramesCreate(const RTSPTapStreamDescription *description, int32_t format,
                                               uint32_t largestFrame);

/**
 * Adds a packet. A frame is whole with its last packet where that is marked (RFC 3550, 5.1, marker), else with the
 * first packet of the next one. Packets that are late or come twice are passed over. Frames that nobody asks for
 * are dropped, the oldest first, as soon as they take more than the largest frame.
 *
 * @param packet  copied, as far as it is needed
 * @return 0; RTSP_INVALID_ARGUMENT null, or a packet whose header claims more than came; RTSP_NO_MEMORY: the frame
 * it belongs to is damaged
 */
RTSPTAP_API int32_t RTSPTapFramesAdd(RTSPTapFrames *frames, const RTPStreamData *packet);

/**
 * Says that no more packets come: what has come of the last frame is whole.
 *
 * @return 0; RTSP_INVALID_ARGUMENT null
 */
RTSPTAP_API int32_t RTSPTapFramesEnd(RTSPTapFrames *frames);

/**
 * Hands out the oldest whole frame.
 *
 * @param frame  filled, as far as its recordSize says
 * @return 0; RTSP_FAILURE there is none; RTSP_INVALID_ARGUMENT bad pointer or recordSize
 */
RTSPTAP_API int32_t RTSPTapFramesNext(RTSPTapFrames *frames, RTSPTapFrame *frame);

/** Releases an assembly and its frames. Null: nothing. */
RTSPTAP_API void RTSPTapFramesDestroy(RTSPTapFrames *frames);

/** What is seen of video without decoding it. What is not told is 0, or an empty text. */
typedef struct RTSPTapVideoFormat {
    uint32_t recordSize; /* sizeof(RTSPTapVideoFormat), set by the caller: the library fills no more than that */
    int32_t isKey;       /* 1: a picture that needs no other one begins in the packet, or the parameter sets of
                            H.264 or H.265 that stand before one */
    int32_t hasParameterSets; /* 1: a sequence parameter set of H.264 or H.265 is there, whole */
    int32_t width;            /* of what is shown, after cropping; pixels, up to 16384 */
    int32_t height;           /* likewise */
    int32_t profile;          /* of H.264 and H.265, as they number it: profile_idc, general_profile_idc */
    int32_t level;            /* likewise: level_idc, in tenths; general_level_idc, in thirtieths */
    char profileName[32];     /* "High"; "profile 21" where the number has no name here */
    char levelName[12];       /* "3.1" */
    double frameRate;         /* frames per second: by the parameter set, nominal where it does not say that it is
                                 kept to; else, of a description, by a=framerate */
} RTSPTapVideoFormat;

/**
 * Tells what the description of a stream says of its pictures: the sequence parameter set of H.264 (ITU-T H.264,
 * 7.3.2.1.1 and E.1.1) or H.265 (ITU-T H.265, 7.3.2.2.1 and E.2.1), and the frame rate. Any thread.
 *
 * @param description  codecType, sps and frameRate are looked at
 * @param format       filled, as far as its recordSize says; isKey and hasParameterSets tell of the set
 * @return 0; RTSP_FAILURE it tells nothing; RTSP_INVALID_ARGUMENT bad pointer or recordSize
 */
RTSPTAP_API int32_t RTSPTapGetVideoFormat(const RTSPTapStreamDescription *description, RTSPTapVideoFormat *format);

/**
 * Tells what one packet shows of its stream's pictures, and whether a key frame begins in it: H.264 (RFC 6184, 5),
 * H.265 (RFC 7798, 4.4, without decoding order numbers), VP8 (RFC 7741, 4.2), VP9 (RFC 9628, 4.2), AV1 (RTP
 * Payload Format For AV1, 4.4), JPEG (RFC 2435, 3.1), MPEG-4 visual (RFC 6416, 5.1) and MPEG video (RFC 2250, 3.4).
 * Any thread.
 *
 * @param codecType  RTPCodecType or RTSPTapCodec
 * @param packet     of that codec
 * @param format     filled, as far as its recordSize says
 * @return 0; RTSP_FAILURE it shows nothing, as every packet of another codec; RTSP_INVALID_ARGUMENT bad pointer or
 * recordSize, or a packet whose header claims more than came
 */
RTSPTAP_API int32_t RTSPTapLookIntoPacket(int32_t codecType, const RTPStreamData *packet,
                                          RTSPTapVideoFormat *format);

#ifdef __cplusplus
}
#endif

#endif
