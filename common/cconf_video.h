#ifndef COMMON_CCONF_VIDEO_H
#define COMMON_CCONF_VIDEO_H

/**
 * Picture and sound. See cconf.h for what all readers share.
 */

#include "common/cconf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CCONF_OSD_PATH "/etc/osd.conf"

enum CCONF_OSD_DATE_FORMAT {
    CCONF_OSD_DATE_FORMAT_YMD,
    CCONF_OSD_DATE_FORMAT_DMY,
    CCONF_OSD_DATE_FORMAT_MDY
};
enum CCONF_OSD_POSITION {
    CCONF_OSD_POSITION_TOP_LEFT,
    CCONF_OSD_POSITION_TOP_RIGHT,
    CCONF_OSD_POSITION_BOTTOM_LEFT,
    CCONF_OSD_POSITION_BOTTOM_RIGHT
};
enum CCONF_OSD_SIZE { CCONF_OSD_SIZE_SMALL, CCONF_OSD_SIZE_MEDIUM, CCONF_OSD_SIZE_LARGE };

/** On-screen display: text in the picture. */
typedef struct {
    int32_t osd_enable;   /* 0..1 (1): show it */
    int32_t show_name;    /* 0..1 (1): show the channel's name */
    int32_t show_date;    /* 0..1 (1): show the date */
    int32_t show_time;    /* 0..1 (1): show the time */
    int32_t date_format;  /* ymd|dmy|mdy (ymd): order of year, month and day */
    int32_t position;     /* top_left|top_right|bottom_left|bottom_right (top_left): corner */
    int32_t size;         /* small|medium|large (medium): of the letters */
    int32_t transparency; /* 0..100 (0): percent */
    char text_2[64];      /* text (): a second line of text */
    char text[64];        /* text (): a line of text */
} CCONF_OSD_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadOsd(const char* path, CCONF_OSD_S* record);

/** Give every field its default. */
void CCONF_DefaultOsd(CCONF_OSD_S* record);

#define CCONF_MOTION_PATH "/etc/motion.conf"

/** A part of the picture, percent of its width or height. */
typedef struct {
    int32_t left;   /* 0..100 (0): left edge */
    int32_t top;    /* 0..100 (0): upper edge */
    int32_t width;  /* 0..100 (100, 0, 0, 0): width; 0: the area is not watched */
    int32_t height; /* 0..100 (100, 0, 0, 0): height; 0: the area is not watched */
} CCONF_AREA_S;

/** Motion detection. Areas are in percent of the picture. */
typedef struct {
    int32_t motion_enable; /* 0..1 (0): look for motion */
    int32_t sensitivity;   /* 0..100 (50): higher: a smaller change of a point counts */
    int32_t threshold;     /* 1..100 (5): percent of the area that must change */
    int32_t hold_time;     /* 0..60 (5): seconds after which motion has ended */
    CCONF_AREA_S area[4];  /* keys "area_1_..." to "area_4_..." */
} CCONF_MOTION_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadMotion(const char* path, CCONF_MOTION_S* record);

/** Give every field its default. */
void CCONF_DefaultMotion(CCONF_MOTION_S* record);

#define CCONF_AUDIO_PATH "/etc/audio.conf"

enum CCONF_AUDIO_CODEC {
    CCONF_AUDIO_CODEC_ALAW,
    CCONF_AUDIO_CODEC_ULAW,
    CCONF_AUDIO_CODEC_G726,
    CCONF_AUDIO_CODEC_ADPCM,
    CCONF_AUDIO_CODEC_PCM
};
enum CCONF_AUDIO_SAMPLE_RATE {
    CCONF_AUDIO_SAMPLE_RATE_8000,
    CCONF_AUDIO_SAMPLE_RATE_16000,
    CCONF_AUDIO_SAMPLE_RATE_48000
};
enum CCONF_AUDIO_SOURCE { CCONF_AUDIO_SOURCE_MICROPHONE, CCONF_AUDIO_SOURCE_LINE };
enum CCONF_AUDIO_TALK { CCONF_AUDIO_TALK_HALF, CCONF_AUDIO_TALK_FULL };

/** Sound in and out. */
typedef struct {
    int32_t audio_enable;    /* 0..1 (1): send and play sound */
    int32_t codec;           /* alaw|ulaw|g726|adpcm|pcm (ulaw): audio codec */
    int32_t sample_rate;     /* 8000|16000|48000 (8000): samples a second */
    int32_t source;          /* microphone|line (microphone): input */
    int32_t input_gain;      /* 0..31 (16): steps of the codec chip */
    int32_t output_volume;   /* 0..31 (16): steps of the codec chip */
    int32_t talk;            /* half|full (half): duplex of the talk path */
    int32_t echo_cancel;     /* 0..1 (1): remove the loudspeaker from the microphone */
    int32_t noise_reduction; /* 0..1 (1): remove steady noise */
} CCONF_AUDIO_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadAudio(const char* path, CCONF_AUDIO_S* record);

/** Give every field its default. */
void CCONF_DefaultAudio(CCONF_AUDIO_S* record);

#define CCONF_VIDEO_DECODER_PATH "/etc/videodecoder.conf"

/** The analogue video input. */
typedef struct {
    int32_t video_type; /* 0..1 (0): 0: NTSC, 1: PAL */
    int32_t brightness; /* 0..255 (128): of the decoder chip */
    int32_t contrast;   /* 0..255 (128): of the decoder chip */
    int32_t saturation; /* 0..255 (128): of the decoder chip */
    int32_t hue;        /* -128..127 (0): of the decoder chip */
} CCONF_VIDEO_DECODER_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadVideoDecoder(const char* path, CCONF_VIDEO_DECODER_S* record);

/** Give every field its default. */
void CCONF_DefaultVideoDecoder(CCONF_VIDEO_DECODER_S* record);

#ifdef __cplusplus
}
#endif

#endif
