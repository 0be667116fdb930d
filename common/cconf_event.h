#ifndef COMMON_CCONF_EVENT_H
#define COMMON_CCONF_EVENT_H

/**
 * What counts as an event, what it sets off, and the camera control line. See cconf.h for what all readers
 * share.
 */

#include "common/cconf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CCONF_EVENT_PATH "/etc/event.conf"

enum CCONF_EVENT_CONTACT { CCONF_EVENT_CONTACT_OPEN, CCONF_EVENT_CONTACT_CLOSED };

/** An alarm input. */
typedef struct {
    int32_t enable;  /* 0..1 (0): watch the input */
    int32_t contact; /* open|closed (open): its state at rest */
} CCONF_ALARM_INPUT_S;

/** What counts as an event, and when. */
typedef struct {
    CCONF_ALARM_INPUT_S input[2]; /* keys "input_1_..." to "input_2_..." */
    int32_t motion_event;         /* 0..1 (0): motion is an event */
    int32_t video_loss_event;     /* 0..1 (0): loss of the video signal is an event */
    int32_t network_loss_event;   /* 0..1 (0): loss of the link is an event */
    int32_t interval;             /* 0..3600 (10): seconds in which an event is not told again */
    int32_t begin_time;           /* 0..1439 (0): minute of the day from which events count */
    int32_t end_time;             /* 0..1440 (1440): minute of the day at which they no longer do */
} CCONF_EVENT_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadEvent(const char* path, CCONF_EVENT_S* record);

/** Give every field its default. */
void CCONF_DefaultEvent(CCONF_EVENT_S* record);

#define CCONF_EVENT_CONTROL_PATH "/etc/eventcontrol.conf"

enum CCONF_EVENT_CONTROL_SECURITY {
    CCONF_EVENT_CONTROL_SECURITY_NONE,
    CCONF_EVENT_CONTROL_SECURITY_STARTTLS,
    CCONF_EVENT_CONTROL_SECURITY_TLS
};

/** Section "[INPUT]": an alarm input. */
typedef struct {
    int32_t enable;    /* 0..1 (0): act on inputs */
    int32_t record;    /* 0..1 (0): record */
    int32_t output;    /* 0..1 (0): close the alarm output */
    int32_t hold_time; /* 1..300 (5): seconds that the output stays closed */
} CCONF_EVENT_CONTROL_INPUT_S;

/** Section "[FTP]": pictures to a server. */
typedef struct {
    int32_t enable;    /* 0..1 (0): send pictures */
    char server[128];  /* text (): name or address */
    int32_t port;      /* 1..65535 (21): its TCP port */
    char user[64];     /* text (): account */
    char password[64]; /* text (): its password */
    char folder[128];  /* text (): where pictures go */
    int32_t passive;   /* 0..1 (1): passive mode */
    int32_t pictures;  /* 1..30 (1): how many */
} CCONF_EVENT_CONTROL_FTP_S;

/** Section "[EMAIL]": messages to people. */
typedef struct {
    int32_t enable;       /* 0..1 (0): send messages */
    char server[128];     /* text (): name or address */
    int32_t port;         /* 1..65535 (25): its TCP port */
    int32_t security;     /* none|starttls|tls (none): of the connection */
    char user[64];        /* text (): account; empty: none */
    char password[64];    /* text (): its password */
    char sender[128];     /* text (): sender address */
    char receiver_2[128]; /* text (): second receiver */
    char receiver[128];   /* text (): first receiver */
    char subject[64];     /* text (Event): subject */
    int32_t attach;       /* 0..1 (1): attach a picture */
} CCONF_EVENT_CONTROL_EMAIL_S;

/** What an event sets off. */
typedef struct {
    CCONF_EVENT_CONTROL_INPUT_S input;
    CCONF_EVENT_CONTROL_FTP_S ftp;
    CCONF_EVENT_CONTROL_EMAIL_S email;
} CCONF_EVENT_CONTROL_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadEventControl(const char* path, CCONF_EVENT_CONTROL_S* record);

/** Give every field its default. */
void CCONF_DefaultEventControl(CCONF_EVENT_CONTROL_S* record);

#define CCONF_CONTROL_PATH "/etc/control.conf"

enum CCONF_CONTROL_LINE { CCONF_CONTROL_LINE_RS485, CCONF_CONTROL_LINE_RS232 };
enum CCONF_CONTROL_PARITY { CCONF_CONTROL_PARITY_NONE, CCONF_CONTROL_PARITY_EVEN, CCONF_CONTROL_PARITY_ODD };

/** Camera control over a serial line. */
typedef struct {
    int32_t protocol;   /* 0..15 (0): number of its language; 0: no camera */
    int32_t line;       /* rs485|rs232 (rs485): serial port */
    int32_t address;    /* 0..255 (1): of the camera on the line */
    int32_t baud_rate;  /* 1200..115200 (9600): bits a second */
    int32_t data_bits;  /* 7..8 (8): bits of a character */
    int32_t parity;     /* none|even|odd (none): of a character */
    int32_t stop_bits;  /* 1..2 (1): behind a character */
    int32_t pan_speed;  /* 1..63 (32): of the protocol's scale */
    int32_t tilt_speed; /* 1..63 (32): of the protocol's scale */
    int32_t zoom_speed; /* 1..7 (4): of the protocol's scale */
} CCONF_CONTROL_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadControl(const char* path, CCONF_CONTROL_S* record);

/** Give every field its default. */
void CCONF_DefaultControl(CCONF_CONTROL_S* record);

#ifdef __cplusplus
}
#endif

#endif
