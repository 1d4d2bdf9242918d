# An external tree for Buildroot: make BR2_EXTERNAL=<project>/packaging/buildroot menuconfig. The sources are the
# checkout that this file is in.

VYXSAVERESTORE_SITE = $(BR2_EXTERNAL_VYXSAVERESTORE_PATH)/../..
VYXSAVERESTORE_VERSION = $(shell awk '/^project/ { print $$3 }' $(VYXSAVERESTORE_SITE)/CMakeLists.txt)
VYXSAVERESTORE_SITE_METHOD = local
# No licence has been granted.
VYXSAVERESTORE_LICENSE = PROPRIETARY
VYXSAVERESTORE_REDISTRIBUTE = NO
VYXSAVERESTORE_DEPENDENCIES = dbus libarchive libcurl libdeflate nghttp2 openssl qt6base sqlite zlib
VYXSAVERESTORE_CONF_OPTS = \
	-DSAVERESTORE_DEVICE=OFF \
	-DBUILD_TESTING=OFF \
	-DSAVERESTORE_HARDENED=ON

VYXSAVERESTORE_CONTACT = $(call qstrip,$(BR2_PACKAGE_VYXSAVERESTORE_CONTACT))
ifneq ($(VYXSAVERESTORE_CONTACT),)
VYXSAVERESTORE_CONF_OPTS += -DSAVERESTORE_CONTACT="$(VYXSAVERESTORE_CONTACT)"
endif

# A group without a user.
define VYXSAVERESTORE_USERS
	- - vyxapplication -1 * - - - Middleware modules
endef

# What is only for Debian.
define VYXSAVERESTORE_REMOVE_LINTIAN
	rm -rf $(TARGET_DIR)/usr/share/lintian
endef
VYXSAVERESTORE_POST_INSTALL_TARGET_HOOKS += VYXSAVERESTORE_REMOVE_LINTIAN

$(eval $(cmake-package))
