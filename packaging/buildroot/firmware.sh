#!/bin/sh
# Post-image script: makes images/firmware.pkg from the kernel, the root file system and /etc of a build.
#
#   BR2_ROOTFS_POST_IMAGE_SCRIPT="$(BR2_EXTERNAL_ZEP_PATH)/firmware.sh"
#   BR2_ROOTFS_POST_SCRIPT_ARGS="KERNEL ROOTFS ERASE-BLOCK [fwpkg build OPTION]..."
#
# KERNEL and ROOTFS are files of the images folder, as uImage and rootfs.squashfs; ERASE-BLOCK is the flash's, as 64KiB.
# Buildroot gives the images folder first, and HOST_DIR and TARGET_DIR in the environment.
set -eu
[ $# -ge 4 ] || { sed -n '2,8s/^# \{0,1\}//p' "$0" >&2; exit 2; }
images=$1 kernel=$2 rootfs=$3 block=$4
shift 4
cd "$images"
PATH=$HOST_DIR/bin:$HOST_DIR/sbin:$PATH
mkfs.jffs2 -l -n -e "$block" -d "$TARGET_DIR/etc" -o settings.jffs2
fwpkg build --force "$@" -o firmware.pkg "$kernel" "$rootfs" settings.jffs2
fwpkg check firmware.pkg
