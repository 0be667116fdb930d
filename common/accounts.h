#ifndef COMMON_ACCOUNTS_H
#define COMMON_ACCOUNTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Operating-system accounts in "/etc/passwd", with traditional crypt() hashes (two-character salt). The file
 * is rewritten through "/etc/npasswd" and a rename, keeping its mode and every line that is not the user's;
 * when anything fails, or the new file would have lost its superuser, the old one stays. A missing file is
 * made anew. Lines of 4095 characters and more are skipped; a file that holds one is not rewritten. No lock;
 * the C library's crypt() has static storage, so one caller at a time.
 */

/** Bytes that QRN_GetSuperUser may write. */
#define QRN_SUPERUSER_SIZE 256

/**
 * Name of the superuser: the first account whose uid and gid are both the number 0. Empty fields do not
 * count.
 *
 * @param name  at least QRN_SUPERUSER_SIZE bytes
 * @return 0; -1 for null, when "/etc/passwd" cannot be opened or no account qualifies
 */
int32_t QRN_GetSuperUser(char* name);

/**
 * Set an account's password, creating the account when it is missing: the superuser's name with uid and gid
 * 0, home "/", shell "/bin/sh"; another with uid and gid 65534, home "/home", shell "/bin/false".
 *
 * @param user  a name that is empty, or holds ":" or a line end, changes nothing
 * @return always 0; QRN_CheckSystemPassword shows whether it is set
 */
int32_t QRN_SetSystemPassword(const char* user, const char* password);

/** QRN_SetSystemPassword on a copy of at most 143 characters of the password. @return 0 */
int32_t QRN_ChangeSystemPassword(const char* user, const char* password);

/**
 * Whether a password is the account's.
 *
 * @return 1 or 0; 0 also for an unknown user, an empty stored hash, and one that crypt refuses
 */
int32_t QRN_CheckSystemPassword(const char* user, const char* password);

/**
 * QRN_CheckSystemPassword for a password in scrambled form.
 *
 * @param block  32 bytes, scrambled as in the user table (binary)
 * @return 1 or 0; an account without a stored hash prints "[confirm_user] salt is null" and gives 0
 */
int32_t confirm_user(const char* user, const uint8_t* block);

#ifdef __cplusplus
}
#endif

#endif
