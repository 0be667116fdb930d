#ifndef UPGRADE_CFLASH_H
#define UPGRADE_CFLASH_H

/*
 * Firmware packages and the flash partitions they are written to.
 *
 * A package is a header with the sizes of three images and the images back to back: the kernel
 * with its boot image header, the root file system, and the JFFS2 image of the settings
 * partition that is mounted on /etc. Offsets are bytes from the start of the file. A negative one is refused
 * like any other position that cannot be reached; CFlash_CheckJffs2 takes it for the end of the image.
 *
 * Messages go to the system log at LOG_ALERT; each function says what else it prints. errno has a meaning
 * only where a function says so. Call the functions from one thread at a time. They wait for the flash: a
 * partition takes seconds to minutes. Paths stay the caller's.
 */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Flags of CFlash_QRNWrite. */
enum {
    CFLASH_CHECK_MARKER = 1, /**< compare the package's marker with the device's */
    CFLASH_VERBOSE = 2,      /**< print a line as each partition is done */
    CFLASH_FACTORY = 4       /**< keep no settings: /etc comes back as in the package */
};

/**
 * Check a kernel image: header magic, both CRC-32 values, architecture, type and compression, in
 * this order. Each refusal is logged, but a file that cannot be opened or holds no whole header
 * is refused without a message.
 *
 * @param path    file that holds the image
 * @param offset  where the image's header starts
 * @return 0 when all checks pass, else -1
 */
int CFlash_CheckImage(const char* path, int64_t offset);

/**
 * Check that every erase block (65536 bytes) of a JFFS2 image starts with a node. The image ends
 * with the file; a tail of fewer than 12 bytes is not looked at.
 *
 * @param path    file whose end is the image
 * @param offset  where the image starts
 * @return 0; -1 at the first block without a node, or when the file cannot be opened, without a message
 */
int CFlash_CheckJffs2(const char* path, int64_t offset);

/**
 * Check a whole package against this device (/etc/oem_marker.conf, /usr/upgrade) without
 * writing anything: marker, version, sizes, kernel image, and for version 1 the JFFS2 image.
 * The first flaw is logged; a file that cannot be read or ends inside its header is refused without a message.
 *
 * @param path  the package
 * @return 0 when the package is good, else -1
 */
int CFlash_CheckPackage(const char* path);

/**
 * Erase every erase block of a partition. A block that cannot be erased is reported to standard
 * error and the log, and the rest is erased all the same.
 *
 * @param device  MTD character device
 * @return 0, also when single blocks failed: errno is then the last one's reason, else 0; -1 when the
 *         device cannot be opened or measured
 */
int CFlash_Erase(const char* device);

/**
 * Erase a partition of NAND flash: bad blocks are skipped, a progress line is printed. Every
 * message goes to the log and to standard output. Flash without a bad-block query is erased whole.
 *
 * @param device  MTD character device
 * @return 0; -1 when the device cannot be opened or measured. Does not return when the
 *         bad-block query fails: the process ends with exit status 1.
 */
int CFlash_Nand_Erase(const char* device);

/**
 * Copy a range of a file to the start of a device, in chunks of 512 bytes. Pauses one second
 * first. A file that ends early ends the copy with success: the checks of the package find that.
 *
 * @param file    package
 * @param device  MTD character device; erase it first. A missing path is created as a plain file.
 * @param offset  start of the range
 * @param size    length in bytes; 0 writes nothing
 * @return 0; -1 when a path is null, or when something cannot be opened, reached, read or written: errno says
 *         why, and a line is logged and printed on standard output
 */
int CFlash_NWrite(const char* file, const char* device, int64_t offset, uint32_t size);

/**
 * Compare a range of a file with the start of a device. Pauses one second first.
 *
 * @param file    package
 * @param device  MTD character device
 * @param offset  start of the range
 * @param size    length in bytes
 * @return 0 when equal, up to the end of the file if that comes first; -1 on a failure as with CFlash_NWrite,
 *         and on a difference, which is printed on standard output only; errno is EIO then
 */
int CFlash_Confirm(const char* file, const char* device, int64_t offset, uint32_t size);

/**
 * Upgrade the device: check the package, keep the settings, unmount /etc, erase, write and
 * compare each partition with up to three attempts, mount /etc again, restore the settings.
 * Kills every process that uses /etc: the caller must have no descriptor and no working folder there.
 * It must be the only upgrade that runs. After a failed check /etc may be left unmounted: reboot.
 *
 * What was not kept, a partition that does not hold its image and a package that cannot be read are named
 * in the log and on standard error. Other messages are printed on standard output.
 *
 * @param package  path of the package
 * @param dev1     MTD device of the kernel; dev2: root file system; dev3: settings
 * @param flags    CFLASH_CHECK_MARKER | CFLASH_VERBOSE | CFLASH_FACTORY
 * @return 0, also when a partition could not be written in three attempts; -1 when a check of
 *         the package or the unmount of /etc failed, nothing is written then
 */
int CFlash_QRNWrite(const char* package, const char* dev1, const char* dev2, const char* dev3, int flags);

#ifdef __cplusplus
}
#endif

#endif
