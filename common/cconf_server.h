#ifndef COMMON_CCONF_SERVER_H
#define COMMON_CCONF_SERVER_H

/**
 * The device's servers and the one that it calls. See cconf.h for what all readers share.
 */

#include "common/cconf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CCONF_STREAM_PATH "/etc/stream.conf"

enum CCONF_STREAM_CODEC { CCONF_STREAM_CODEC_H264, CCONF_STREAM_CODEC_MPEG4, CCONF_STREAM_CODEC_MJPEG };
enum CCONF_STREAM_RATE { CCONF_STREAM_RATE_CONSTANT, CCONF_STREAM_RATE_VARIABLE };

/** A stream server. */
typedef struct {
    int32_t port;   /* 1..65535 (1852, 1853, 1854): TCP port of its server */
    int32_t enable; /* 0..1 (1, 0, 0): serve this stream */
    int32_t codec;  /* h264|mpeg4|mjpeg (h264): video codec */
    int32_t width;  /* 160..1920 (1280, 640, 320): pixels */
    int32_t height; /* 112..1088 (720, 480, 240): pixels */
    int32_t fps;    /* 1..60 (30, 15, 15): frames a second */
    int32_t rate;   /* constant|variable (constant): bit rate control */
    int32_t kbps;   /* 32..16384 (4096, 1024, 256): bit rate, kbit/s */
    int32_t gop;    /* 1..300 (30): frames from key frame to key frame */
} CCONF_STREAM_SERVER_S;

/** The stream servers. */
typedef struct {
    CCONF_STREAM_SERVER_S stream[3];         /* keys "stream_1_..." to "stream_3_..." */
    int32_t rtsp_port;                       /* 1..65535 (554): TCP port of the RTSP server */
    int32_t multicast_enable;                /* 0..1 (0): serve to a group, too */
    char multicast_address[CCONF_IPV4_SIZE]; /* IPv4 (239.0.0.1): the group */
    int32_t multicast_port;                  /* 1..65535 (5000): its UDP port */
} CCONF_STREAM_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadStream(const char* path, CCONF_STREAM_S* record);

/** Give every field its default. */
void CCONF_DefaultStream(CCONF_STREAM_S* record);

#define CCONF_WEB_PATH "/etc/web.conf"

enum CCONF_WEB_AUTHENTICATION {
    CCONF_WEB_AUTHENTICATION_NONE,
    CCONF_WEB_AUTHENTICATION_BASIC,
    CCONF_WEB_AUTHENTICATION_DIGEST
};

/** The web server. */
typedef struct {
    int32_t port;           /* 1..65535 (80): TCP port of the pages */
    int32_t https_enable;   /* 0..1 (0): serve encrypted pages */
    int32_t https_port;     /* 1..65535 (443): TCP port of the encrypted pages */
    int32_t authentication; /* none|basic|digest (digest): how visitors prove who they are */
    int32_t timeout;        /* 10..86400 (300): seconds after which a visitor must do so again */
    int32_t max_client;     /* 1..32 (10): visitors at a time */
} CCONF_WEB_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadWeb(const char* path, CCONF_WEB_S* record);

/** Give every field its default. */
void CCONF_DefaultWeb(CCONF_WEB_S* record);

#define CCONF_MIDDLE_PATH "/etc/middle.conf"

/** The middle server, which the device calls so that viewers reach it behind a firewall. */
typedef struct {
    int32_t middle_enable;  /* 0..1 (0): call the server */
    char server[128];       /* text (): name or address */
    int32_t port;           /* 1..65535 (1860): its TCP port */
    char device_id[32];     /* text (): own name at the server */
    char user[64];          /* text (): account */
    char password[64];      /* text (): its password */
    int32_t keepalive_time; /* 5..600 (30): seconds between signs of life */
    int32_t retry_time;     /* 1..3600 (10): seconds before the next attempt */
} CCONF_MIDDLE_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadMiddle(const char* path, CCONF_MIDDLE_S* record);

/** Give every field its default. */
void CCONF_DefaultMiddle(CCONF_MIDDLE_S* record);

#define CCONF_TCP_SERVER_PATH "/etc/tcp_server.conf"

/** The command server. */
typedef struct {
    int32_t server_port; /* 1..65535 (1852): TCP port */
    int32_t max_client;  /* 1..64 (16): connections at a time */
    int32_t timeout;     /* 1..3600 (60): seconds after which a silent connection is closed */
} CCONF_TCP_SERVER_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadTcpServer(const char* path, CCONF_TCP_SERVER_S* record);

/** Give every field its default. */
void CCONF_DefaultTcpServer(CCONF_TCP_SERVER_S* record);

#ifdef __cplusplus
}
#endif

#endif
