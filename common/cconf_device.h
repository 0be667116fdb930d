#ifndef COMMON_CCONF_DEVICE_H
#define COMMON_CCONF_DEVICE_H

/**
 * What the device is, when it is, and where it records. See cconf.h for what all readers share.
 */

#include "common/cconf.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CCONF_GENERAL_PATH "/etc/general.conf"

enum CCONF_GENERAL_POWER_FREQUENCY { CCONF_GENERAL_POWER_FREQUENCY_50, CCONF_GENERAL_POWER_FREQUENCY_60 };

/** Names and habits of the device. */
typedef struct {
    char cam_alias_2[32];    /* text (camera 2): name of the second channel */
    char cam_alias_3[32];    /* text (camera 3): name of the third channel */
    char cam_alias_4[32];    /* text (camera 4): name of the fourth channel */
    char cam_alias[32];      /* text (camera 1): name of the first channel */
    int32_t power_frequency; /* 50|60 (50): of the lamps in view, hertz */
    int32_t led_enable;      /* 0..1 (1): light the status lamp */
    int32_t buzzer_enable;   /* 0..1 (0): sound the buzzer on events */
} CCONF_GENERAL_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadGeneral(const char* path, CCONF_GENERAL_S* record);

/** Give every field its default. */
void CCONF_DefaultGeneral(CCONF_GENERAL_S* record);

#define CCONF_SYSTEM_PATH "/etc/system.conf"

/** What identifies and watches the device. */
typedef struct {
    char device_name[32];    /* text (camera): name shown to people */
    char location[64];       /* text (): where it hangs */
    char language[8];        /* text (en): of the pages, two letters */
    int32_t uptime_reboot;   /* 0..365 (0): days after which it restarts; 0: never */
    int32_t reboot_hour;     /* 0..23 (3): hour of that restart */
    int32_t watchdog_enable; /* 0..1 (1): let the watchdog restart a device that hangs */
    char log_server[128];    /* text (): where the system log is sent; empty: nowhere */
    int32_t log_port;        /* 1..65535 (514): its UDP port */
} CCONF_SYSTEM_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadSystem(const char* path, CCONF_SYSTEM_S* record);

/** Give every field its default. */
void CCONF_DefaultSystem(CCONF_SYSTEM_S* record);

#define CCONF_SERVER_INFO_PATH "/etc/serverinfo.conf"

/** What production wrote into the device. */
typedef struct {
    char manufacturer[32];            /* text (): name of the manufacturer */
    char model_name[32];              /* text (): what it is called */
    char serial_no[32];               /* text (): its number */
    char hardware_version[16];        /* text (): of the board */
    char mac_address[CCONF_MAC_SIZE]; /* MAC (00:00:00:00:00:00): of the wired interface */
} CCONF_SERVER_INFO_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadServerInfo(const char* path, CCONF_SERVER_INFO_S* record);

/** Give every field its default. */
void CCONF_DefaultServerInfo(CCONF_SERVER_INFO_S* record);

#define CCONF_TIME_ZONE_PATH "/etc/timezone.conf"

/** Time zone and time server. */
typedef struct {
    int32_t timezone;     /* 0..55 (18): index of the zone, as for CTIME_NTPSync; 18: UTC */
    int32_t dst_enable;   /* 0..1 (0): add an hour of daylight-saving time */
    int32_t ntp_enable;   /* 0..1 (0): set the clock from a time server */
    char ntp_server[128]; /* text (pool.ntp.org): name or address of the server */
    int32_t ntp_interval; /* 1..168 (24): hours between two questions */
} CCONF_TIME_ZONE_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadTimeZone(const char* path, CCONF_TIME_ZONE_S* record);

/** Give every field its default. */
void CCONF_DefaultTimeZone(CCONF_TIME_ZONE_S* record);

#define CCONF_STORAGE_PATH "/etc/storage.conf"

enum CCONF_STORAGE_MEDIUM { CCONF_STORAGE_MEDIUM_SD, CCONF_STORAGE_MEDIUM_USB, CCONF_STORAGE_MEDIUM_SHARE };

/** Where and how recordings are kept. */
typedef struct {
    int32_t storage_enable;  /* 0..1 (0): record */
    int32_t medium;          /* sd|usb|share (sd): card, stick or network share */
    int32_t overwrite;       /* 0..1 (1): when full, the oldest recording goes */
    int32_t reserve;         /* 16..65536 (256): space that stays free, MiB */
    int32_t segment_time;    /* 1..60 (10): length of a file, minutes */
    int32_t keep_days;       /* 0..365 (0): days after which a recording goes; 0: never */
    int32_t pre_time;        /* 0..30 (5): seconds kept from before an event */
    int32_t post_time;       /* 1..300 (30): seconds recorded after an event */
    char share_host[128];    /* text (): server of the network share */
    char share_path[128];    /* text (): folder on it */
    char share_user[64];     /* text (): account on it */
    char share_password[64]; /* text (): its password */
} CCONF_STORAGE_S;

/** Read the file; see cconf.h. @return 1; 0 when it cannot be opened, the record is untouched then */
int32_t CCONF_ReadStorage(const char* path, CCONF_STORAGE_S* record);

/** Give every field its default. */
void CCONF_DefaultStorage(CCONF_STORAGE_S* record);

#ifdef __cplusplus
}
#endif

#endif
