/* The media platform: the 13 operations of the chip's media libraries that take one JPEG snapshot,
 * and the records they exchange.
 *
 * Declared here with names of our own. On 32-bit ARM every record has the size, and every field
 * that the service sets or reads the offset, that the libraries expect; this is checked below when
 * compiling for a 32-bit target. On a 64-bit host (the simulated platform) only the two records
 * that hold a pointer grow. Words named "aReserved" belong to the platform: zero, or as returned.
 *
 * Every operation returns 0 for success, otherwise the platform's error code, a negative number
 * when read as signed (0xA.......); GetFd returns a descriptor or a negative code. Another process
 * must have brought the media system up and set video processing group 1, channel 0 running.
 *
 * Order of calls for one snapshot: GetChnAttr, CreateChn, GetJpegParam, SetJpegParam, Bind,
 * StartRecvFrame, GetFd, (select on the descriptor), QueryStatus, GetStream, (copy), ReleaseStream,
 * UnBind, StopRecvFrame, DestroyChn.
 */
#ifndef QRCODE_MEDIA_PLATFORM_H
#define QRCODE_MEDIA_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

enum {
    MEDIA_MOD_VPSS = 7,      /* module number of the video processing unit in an endpoint */
    MEDIA_MOD_VENC = 8,      /* module number of the video encoder in an endpoint */
    MEDIA_PAYLOAD_JPEG = 26, /* payload type of a JPEG encoder channel */
    MEDIA_RECV_SINGLE = 0    /* JPEG receive mode: single pictures */
};

/* JPEG-specific attributes of an encoder channel, 28 bytes. */
struct MediaJpegAttr {
    uint32_t bDcf;            /* 1: DCF thumbnails */
    uint8_t nLargeThumbnails; /* 0..2 */
    uint8_t aReserved[3];
    uint32_t aLargeThumbnailSize[2][2]; /* width, height in pixels, of each */
    int32_t nRecvMode;
};

/* Encoder attributes, 60 bytes. */
struct MediaEncodeAttr {
    int32_t nPayloadType;
    uint32_t nMaxWidth;  /* pixels */
    uint32_t nMaxHeight; /* pixels */
    uint32_t nBufSize;   /* bytes of the channel's stream buffer */
    uint32_t nProfile;
    uint32_t bByFrame;   /* 1: a fetch gets one whole picture */
    uint32_t nPicWidth;  /* pixels */
    uint32_t nPicHeight; /* pixels */
    MediaJpegAttr Jpeg;
};

/* Rate control, 40 bytes: all zero for JPEG. */
struct MediaRateControl {
    uint32_t aReserved[10];
};

/* Group of pictures, 16 bytes: a mode and its parameters. */
struct MediaGopAttr {
    int32_t nMode;
    int32_t nParam;
    uint32_t aReserved[2];
};

/* What CreateChn wants, 116 bytes. */
struct MediaVencChnAttr {
    MediaEncodeAttr Encode;
    MediaRateControl RateControl;
    MediaGopAttr Gop;
};

/* JPEG parameters of a channel, 200 bytes. */
struct MediaJpegParam {
    uint32_t nQuality; /* quality factor, 1..99 */
    uint8_t aQuantTable[3][64];
    uint32_t nMcuPerEcs; /* MCUs per entropy-coded segment */
};

/* One end of a binding, 12 bytes. */
struct MediaEndpoint {
    int32_t nModule; /* MEDIA_MOD_... */
    int32_t nDevice; /* the group, for video processing; 0 for the encoder */
    int32_t nChannel;
};

/* 4 bytes. */
struct MediaRecvParam {
    int32_t nPictures; /* pictures to take after StartRecvFrame */
};

/* Attributes of a video processing channel, 72 bytes. Aligned for the 64-bit fields that the
 * platform may keep among the reserved words, as are the records below. */
struct alignas(8) MediaVpssChnAttr {
    uint32_t nReserved;
    uint32_t nWidth;  /* pixels */
    uint32_t nHeight; /* pixels */
    uint32_t aReserved[15];
};

/* Status of an encoder channel, 88 bytes. */
struct alignas(8) MediaVencStatus {
    uint32_t aReserved0[3];
    uint32_t nCurPacks; /* packs of the picture that is ready, 0 for none */
    uint32_t aReserved1[18];
};

/* One piece of an encoded picture, 136 bytes on 32-bit ARM. Its valid bytes are the nLen - nOffset
 * ones from pAddr + nOffset. pAddr points into the platform's stream buffer, which is valid from
 * GetStream to ReleaseStream. */
struct alignas(8) MediaPack {
    uint32_t aReserved0[2];
    uint8_t* pAddr;
    uint32_t nLen; /* bytes at pAddr, the leading nOffset ones included */
    uint32_t aReserved1[4];
    uint32_t nOffset; /* bytes at pAddr before the valid ones */
    uint32_t aReserved2[25];
};

/* One encoded picture, 384 bytes on 32-bit ARM. The caller of GetStream supplies pPack, an array of
 * nPacks packs; the platform fills them and the rest. */
struct alignas(8) MediaStream {
    MediaPack* pPack;
    uint32_t nPacks;
    uint32_t aReserved[94];
};

extern "C" {

/* Reads the attributes of a video processing channel. */
int HI_MPI_VPSS_GetChnAttr(int nGroup, int nVpssChn, MediaVpssChnAttr* pAttr);

/* Creates and destroys an encoder channel; a second creation of a living channel is refused. */
int HI_MPI_VENC_CreateChn(int nVencChn, const MediaVencChnAttr* pAttr);
int HI_MPI_VENC_DestroyChn(int nVencChn);

/* Reads and writes the JPEG parameters of a channel. */
int HI_MPI_VENC_GetJpegParam(int nVencChn, MediaJpegParam* pParam);
int HI_MPI_VENC_SetJpegParam(int nVencChn, const MediaJpegParam* pParam);

/* Connects and disconnects a source of pictures and a destination. */
int HI_MPI_SYS_Bind(const MediaEndpoint* pSrc, const MediaEndpoint* pDst);
int HI_MPI_SYS_UnBind(const MediaEndpoint* pSrc, const MediaEndpoint* pDst);

/* Starts and stops the taking of pictures. */
int HI_MPI_VENC_StartRecvFrame(int nVencChn, const MediaRecvParam* pParam);
int HI_MPI_VENC_StopRecvFrame(int nVencChn);

/* The channel's descriptor, readable when a picture is ready; it belongs to the platform and must
 * not be closed. */
int HI_MPI_VENC_GetFd(int nVencChn);

/* Tells how many packs the picture that is ready has. */
int HI_MPI_VENC_QueryStatus(int nVencChn, MediaVencStatus* pStatus);

/* Fetches the picture into pStream; nWaitMs < 0 waits until there is one, 0 does not wait. The
 * bytes stay in the platform's buffer until the same record is given back to ReleaseStream. */
int HI_MPI_VENC_GetStream(int nVencChn, MediaStream* pStream, int nWaitMs);
int HI_MPI_VENC_ReleaseStream(int nVencChn, MediaStream* pStream);
}

#define MEDIA_SIZE(record, bytes)                                                                  \
    static_assert(sizeof(record) == (bytes), #record " must have " #bytes " bytes")
#define MEDIA_FIELD(record, field, bytes)                                                          \
    static_assert(offsetof(record, field) == (bytes),                                              \
                  #record "." #field " must stand at byte " #bytes)

MEDIA_SIZE(MediaJpegAttr, 28);
MEDIA_SIZE(MediaEncodeAttr, 60);
MEDIA_SIZE(MediaRateControl, 40);
MEDIA_SIZE(MediaGopAttr, 16);
MEDIA_SIZE(MediaVencChnAttr, 116);
MEDIA_FIELD(MediaEncodeAttr, nPayloadType, 0);
MEDIA_FIELD(MediaEncodeAttr, nMaxWidth, 4);
MEDIA_FIELD(MediaEncodeAttr, nMaxHeight, 8);
MEDIA_FIELD(MediaEncodeAttr, nBufSize, 12);
MEDIA_FIELD(MediaEncodeAttr, nProfile, 16);
MEDIA_FIELD(MediaEncodeAttr, bByFrame, 20);
MEDIA_FIELD(MediaEncodeAttr, nPicWidth, 24);
MEDIA_FIELD(MediaEncodeAttr, nPicHeight, 28);
MEDIA_FIELD(MediaEncodeAttr, Jpeg, 32);
MEDIA_FIELD(MediaJpegAttr, bDcf, 0);
MEDIA_FIELD(MediaJpegAttr, nLargeThumbnails, 4);
MEDIA_FIELD(MediaJpegAttr, aLargeThumbnailSize, 8);
MEDIA_FIELD(MediaJpegAttr, nRecvMode, 24);
MEDIA_FIELD(MediaVencChnAttr, Encode, 0);
MEDIA_FIELD(MediaVencChnAttr, RateControl, 60);
MEDIA_FIELD(MediaVencChnAttr, Gop, 100);
MEDIA_FIELD(MediaGopAttr, nMode, 0);
MEDIA_FIELD(MediaGopAttr, nParam, 4);
MEDIA_SIZE(MediaJpegParam, 200);
MEDIA_FIELD(MediaJpegParam, nQuality, 0);
MEDIA_SIZE(MediaEndpoint, 12);
MEDIA_FIELD(MediaEndpoint, nModule, 0);
MEDIA_FIELD(MediaEndpoint, nDevice, 4);
MEDIA_FIELD(MediaEndpoint, nChannel, 8);
MEDIA_SIZE(MediaRecvParam, 4);
MEDIA_FIELD(MediaRecvParam, nPictures, 0);
MEDIA_SIZE(MediaVpssChnAttr, 72);
MEDIA_FIELD(MediaVpssChnAttr, nWidth, 4);
MEDIA_FIELD(MediaVpssChnAttr, nHeight, 8);
MEDIA_SIZE(MediaVencStatus, 88);
MEDIA_FIELD(MediaVencStatus, nCurPacks, 12);
#if UINTPTR_MAX == 0xFFFFFFFFu
MEDIA_SIZE(MediaPack, 136);
MEDIA_FIELD(MediaPack, pAddr, 8);
MEDIA_FIELD(MediaPack, nLen, 12);
MEDIA_FIELD(MediaPack, nOffset, 32);
MEDIA_SIZE(MediaStream, 384);
MEDIA_FIELD(MediaStream, pPack, 0);
MEDIA_FIELD(MediaStream, nPacks, 4);
#endif

#undef MEDIA_SIZE
#undef MEDIA_FIELD

#endif
