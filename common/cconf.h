#ifndef COMMON_CCONF_H
#define COMMON_CCONF_H

/**
 * Typed readers of the device's configuration files. Each file has a record and two functions:
 *
 *     CCONF_STREAM_S stream;
 *     CCONF_DefaultStream(&stream);
 *     CCONF_ReadStream(CCONF_STREAM_PATH, &stream);
 *
 * void CCONF_Default<Name>(record) gives every field its default.
 *
 * int32_t CCONF_Read<Name>(path, record) puts what the file holds into the record and leaves the rest as it
 * is. It returns 1; 0 when the file cannot be opened, which is logged at priority 1 with
 * "<name>_info : <path> can't open file : <reason>", and for null arguments: the record is untouched then.
 *
 * Behind each field of a record stand what it may be, its default in parentheses, and its meaning:
 *
 *     1..65535   a decimal number; other numbers leave the field
 *     a|b|c      a word, kept as its place: 0, 1, 2, which enumerations name; other words leave the field
 *     text       always terminated; a longer one is cut
 *     IPv4, IPv6, MAC   an address as text, whole and valid, or the field stays
 *
 * The key of a field has its name, unless its group says otherwise. A key of the file counts as the first
 * known key that it begins with: "port_2=81" sets "port". An empty value leaves the field. A later line
 * overrides an earlier one. Lines are seen in pieces of 255 characters, see cutil_conf.h for the syntax.
 *
 * The records are the caller's; the functions keep no state and may be called from any thread. A reader
 * sees a file before or after a rewrite by the writers of cutil_conf.h, never between.
 */

#include <stdint.h>

/** Texts of addresses, with the terminator. */
#define CCONF_IPV4_SIZE 16
#define CCONF_IPV6_SIZE 46
#define CCONF_MAC_SIZE 18

#endif
