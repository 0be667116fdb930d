# An image type "zepfw": the firmware package of the kernel, the root file system and /etc of an image.
#
#   IMAGE_CLASSES += "zep-firmware"
#   IMAGE_FSTYPES += "zepfw"

ZEP_KERNEL ?= "${DEPLOY_DIR_IMAGE}/uImage"
# Another image type; its file goes into the package as it is.
ZEP_ROOTFS_TYPE ?= "squashfs"
ZEP_ERASE_BLOCK ?= "64KiB"
# Of fwpkg build, as "--marker 3510 --version 3".
ZEP_FWPKG_OPTIONS ?= ""

IMAGE_TYPES += "zepfw"
IMAGE_TYPEDEP:zepfw = "${ZEP_ROOTFS_TYPE}"
do_image_zepfw[depends] += "zep-fwpkg-native:do_populate_sysroot mtd-utils-native:do_populate_sysroot virtual/kernel:do_deploy"

IMAGE_CMD:zepfw () {
    mkfs.jffs2 -l -n -e ${ZEP_ERASE_BLOCK} -d ${IMAGE_ROOTFS}/etc -o ${WORKDIR}/settings.jffs2
    fwpkg build --force ${ZEP_FWPKG_OPTIONS} -o ${IMGDEPLOYDIR}/${IMAGE_NAME}.zepfw ${ZEP_KERNEL} \
        ${IMGDEPLOYDIR}/${IMAGE_NAME}.${ZEP_ROOTFS_TYPE} ${WORKDIR}/settings.jffs2
    fwpkg check ${IMGDEPLOYDIR}/${IMAGE_NAME}.zepfw
}
