################################################################################
#
# zep
#
################################################################################

ZEP_VERSION = 1.1.0
ZEP_LICENSE = MIT
ZEP_LICENSE_FILES = LICENSE
# This external tree stands in the source itself.
ZEP_SITE = $(BR2_EXTERNAL_ZEP_PATH)/../..
ZEP_SITE_METHOD = local
ZEP_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build --exclude /out
ZEP_INSTALL_STAGING = YES
ZEP_SUPPORTS_IN_SOURCE_BUILD = NO
ZEP_CONF_OPTS = -DZEP_DEVICE=ON -DZEP_TESTS=OFF -DZEP_WERROR=OFF

ifeq ($(BR2_PACKAGE_LIBXCRYPT),y)
ZEP_DEPENDENCIES += libxcrypt
endif

$(eval $(cmake-package))
