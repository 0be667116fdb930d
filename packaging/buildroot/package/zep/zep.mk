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

# fwpkg for the PC that builds. CLI11, the JSON library and nettle are the PC's: libcli11-dev, nlohmann-json3-dev and
# nettle-dev on Debian.
HOST_ZEP_SUPPORTS_IN_SOURCE_BUILD = NO
HOST_ZEP_CONF_OPTS = -DZEP_TESTS=OFF -DZEP_WERROR=OFF

define HOST_ZEP_BUILD_CMDS
	$(HOST_MAKE_ENV) $(BR2_CMAKE) --build $(HOST_ZEP_BUILDDIR) -j$(PARALLEL_JOBS) --target fwpkg
endef

define HOST_ZEP_INSTALL_CMDS
	$(INSTALL) -D -m 0755 $(HOST_ZEP_BUILDDIR)/bin/fwpkg $(HOST_DIR)/bin/fwpkg
endef

$(eval $(cmake-package))
$(eval $(host-cmake-package))
