#ifndef COMMON_CUTIL_CONF_H
#define COMMON_CUTIL_CONF_H

/**
 * Key=value configuration files.
 *
 * One setting a line: a key, `=`, a value. Blanks (space, tab) before a key or a value are skipped and
 * exactly one behind it is removed. A value ends at the line end or at a further `=`. A key or value that
 * begins with a double quote loses its first and its last character, whatever the last one is. A line
 * whose first non-blank character is `#` is a comment, `[` a section header. There is no escape character
 * and no continuation line.
 *
 * Files may hold anything: lines longer than a buffer are seen in pieces, nothing overruns.
 * The functions keep no state and may be called from any thread. A reader sees the file before or after
 * a rewrite, never between. Writers of one file do not wait for each other: see each of them.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes that the destination of CUTIL_GetConfValue must hold, terminator included. */
#define CUTIL_CONF_VALUE_SIZE 2048

/** The locked writers' temporary file; while it exists CUTIL_SetConfValue refuses. */
#define CUTIL_CONF_TEMP_PATH "/etc/temp.conf"

/**
 * Take the next key or value of a line. Call it for the key, then for the value at the returned cursor.
 *
 * @param token   receives the token, terminated. Must hold as many bytes as the text at `cursor` with
 *                its terminator. Untouched when null is returned and when the cursor returned stands
 *                on `#` or `[`.
 * @param cursor  terminated text
 * @return the cursor behind the token (behind the `=` that ended it, or at the line end); a cursor at `#` or
 *         `[` when the text begins with one, and also behind a key whose value begins with one: the
 *         caller ends the line there; null when no token is left
 */
const char* CUTIL_GetConfToken(char* token, const char* cursor);

/**
 * Read one setting.
 *
 * A stored key that begins with `key` counts as `key`: "port" finds "port_2=81" if that stands
 * first. When no key matches the value of the last line that has a key is delivered, the empty text if
 * there is none, and the result is 0 all the same: it does not say whether the key exists. A value that
 * begins with `#` leaves the value of the line before in force.
 *
 * @param path   the file
 * @param key    wanted key; empty matches the first key
 * @param value  receives the value, terminated; CUTIL_CONF_VALUE_SIZE bytes
 * @return 0; -1 when the file cannot be opened, errno says why, `value` is untouched
 */
int CUTIL_GetConfValue(const char* path, const char* key, char* value);

/*
 * The writers put "<key><separator><value>" in the place of every line that matches, or behind the last line
 * if none does; all other lines stay byte for byte. They write a temporary file, take over the old file's
 * mode and owner, bring the data to the storage, rename the file over `path` and bring the directory entry to
 * the storage. On any failure before the rename the old file is whole and the temporary file is gone. Only a
 * writer that is killed leaves its temporary file.
 *
 * A key or value with a line feed would smuggle in a second setting; it is refused with -1, nothing is
 * touched. So are null arguments.
 */

/**
 * Set a value; a line matches when it begins with `key`.
 *
 * @param path       the file to change; lines are seen in pieces of 262,143 characters
 * @param temp_path  temporary file of the caller's choice on the same file system; an old one is
 *                   replaced. It must not be `path` itself.
 * @return 0, or -1: a file that cannot be opened is named on standard output
 */
int CUTIL_SetFileValue(const char* path, const char* temp_path, const char* key, const char* value);

/**
 * Set a value under the lock; a line matches when its text before the first `=` or space is exactly
 * `key`. Lines are seen in pieces of 255 characters. CUTIL_CONF_TEMP_PATH is the temporary file and, by
 * its existence, the lock.
 *
 * A writer that is killed, or a power cut, leaves the lock behind, and every later call refuses. The lock is
 * stale when no process has the file open ("fuser /etc/temp.conf" prints none); removing it is right then and
 * loses nothing but the change that was not made. Nothing in the library removes it. A refusal says so on
 * standard error and in the system log, at priority 1.
 *
 * @return 0; -1 when the lock exists or `path` cannot be opened; -2 when the temporary file cannot be created
 *         (each with a line on standard output); -3 when the file cannot be read to its end,
 *         written in full, renamed or brought to the storage
 */
int CUTIL_SetConfValue(const char* path, const char* key, const char* value);

/**
 * Set a value with a separator of the caller's choice; a line matches when it begins with `key`.
 * It takes no lock: it replaces CUTIL_CONF_TEMP_PATH whether or not another writer is at work.
 *
 * @param separator  a character, not the line feed
 * @return 0, or -1: a file that cannot be opened is named on standard output
 */
int CUTIL_SetConfValueSep(int separator, const char* path, const char* key, const char* value);

/**
 * Number of a text of digits.
 *
 * @return -1 for null and for a text with any character but "0".."9" (a sign or a blank too); else its
 *         value, 0 for the empty text, INT32_MAX for what is beyond it
 */
int32_t CUTIL_AtoiDigits(const char* text);

#ifdef __cplusplus
}
#endif

#endif
