#ifndef UPGRADE_MTD_UAPI_H
#define UPGRADE_MTD_UAPI_H

/*
 * The user interface of the Linux MTD character devices, as the kernel publishes it. Its records
 * hold no address, so their layout is the same on every target and is pinned here.
 */
#include <assert.h>
#include <stddef.h>
#include <sys/ioctl.h>
#include <mtd/mtd-user.h>

/* mtd_info_user: type 0, flags 4, size 8, erasesize 12, writesize 16, oobsize 20, padding 24 */
static_assert(sizeof(struct mtd_info_user) == 32, "size of mtd_info_user");
static_assert(offsetof(struct mtd_info_user, flags) == 4, "mtd_info_user.flags");
static_assert(offsetof(struct mtd_info_user, size) == 8, "mtd_info_user.size");
static_assert(offsetof(struct mtd_info_user, erasesize) == 12, "mtd_info_user.erasesize");
static_assert(offsetof(struct mtd_info_user, writesize) == 16, "mtd_info_user.writesize");

static_assert(sizeof(struct erase_info_user) == 8, "size of erase_info_user");
static_assert(offsetof(struct erase_info_user, length) == 4, "erase_info_user.length");

/* The bad-block request takes the block's offset as a 64-bit number on every target. */
static_assert(sizeof(__kernel_loff_t) == 8, "argument of MEMGETBADBLOCK");

static_assert(MEMGETINFO == 0x80204D01U, "MEMGETINFO");
static_assert(MEMERASE == 0x40084D02U, "MEMERASE");
static_assert(MEMGETBADBLOCK == 0x40084D0BU, "MEMGETBADBLOCK");
static_assert(MTD_NANDFLASH == 4, "type number of NAND");

#endif
