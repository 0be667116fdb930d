#ifndef COMMON_USERTABLE_H
#define COMMON_USERTABLE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The accounts of the device's own viewing and control services, in the file "/etc/qrnpasswd": at most five,
 * each with a name, a password that the file holds scrambled, and four rights. The name "root" is reserved.
 *
 * Every change rewrites the file through "/etc/qrnpasswd.tmp" and a rename; when anything fails the old file
 * stays whole. The file is readable for its owner only. There is no lock: callers serialise changes.
 *
 * A password holds any byte but zero: the file stores it as hexadecimal digits. A name that would break the
 * file's lines (with "/", a carriage return or a line feed) and an empty name are refused with -1 before
 * anything is written.
 */

#define USERTABLE_USERS 5
#define USERTABLE_NAME_SIZE 16     /* with the terminator */
#define USERTABLE_PASSWORD_SIZE 32 /* with the terminator; a file keeps the first 15 characters */

typedef struct {
    char name[USERTABLE_NAME_SIZE];         /*  0 */
    char password[USERTABLE_PASSWORD_SIZE]; /* 16  plain text */
    uint8_t right1;                         /* 48 */
    uint8_t right2;                         /* 49 */
    uint8_t right3;                         /* 50 */
    uint8_t right4;                         /* 51 */
} USERTABLE_ENTRY_S;

typedef struct USERTABLE USERTABLE_S;

struct USERTABLE {
    uint8_t count; /* valid entries, 0 to USERTABLE_USERS */
    USERTABLE_ENTRY_S entries[USERTABLE_USERS];
    int32_t (*Reload)(USERTABLE_S* table); /* called at the start of add and delete */
};

/**
 * Clear the table and load the file. Lines without six fields, with a name above 15 characters, a right above
 * three characters or a password block that is not 64 hexadecimal digits are skipped; the rest load.
 *
 * @return 0; -1 when the file cannot be opened or read, after one line on standard output, the table is empty
 *         then
 */
int32_t USERTABLE_Init(USERTABLE_S* table);

/**
 * Write the table to the file.
 *
 * @return 0; -1 when the temporary file cannot be created (one line on standard output), or an entry would
 *         break the file; -2 when the file cannot be written in full or put in place
 */
int32_t USERTABLE_Save(USERTABLE_S* table);

/**
 * Reload, append a user and save.
 *
 * @param password  up to 31 bytes; a later load finds its first 15
 * @param right1    this and the next three: 0 to 255, stored as they are
 * @return the result of the save; -1 when five users are there, the name is above 15 or the password above
 *         31 characters, the name is "root", taken or not allowed, or an existing file cannot be loaded
 */
int32_t USERTABLE_AddUser(USERTABLE_S* table, const char* name, const char* password, uint8_t right1,
                          uint8_t right2, uint8_t right3, uint8_t right4);

/**
 * Reload, remove a user (the last entry takes its place) and save.
 *
 * @return the result of the save; -1 for an unknown name
 */
int32_t USERTABLE_DeleteUser(USERTABLE_S* table, const char* name);

/**
 * Change a password in the caller's table, without a reload, and save. All five slots are searched, valid or
 * not: one beyond the count can be changed and is not written.
 *
 * @return the result of the save; -1 for an unknown name; -2 for a password above 31 characters
 */
int32_t USERTABLE_SetPassword(USERTABLE_S* table, const char* name, const char* password);

/**
 * Change the rights in the caller's table, as USERTABLE_SetPassword does the password, and save.
 *
 * @return the result of the save; -1 for an unknown name
 */
int32_t USERTABLE_SetRights(USERTABLE_S* table, const char* name, uint8_t right1, uint8_t right2,
                            uint8_t right3, uint8_t right4);

#ifdef __cplusplus
}
#endif

#endif
