################################################################################
#
# telvane
#
################################################################################

TELVANE_VERSION = 1.0.0
TELVANE_SITE = $(call qstrip,$(BR2_PACKAGE_TELVANE_SOURCE))
TELVANE_SITE_METHOD = local
TELVANE_LICENSE = MIT
TELVANE_LICENSE_FILES = LICENSE
TELVANE_INSTALL_STAGING = YES
TELVANE_DEPENDENCIES = cjson util-linux host-pkgconf
TELVANE_CONF_OPTS = \
	-DTELVANE_BUILD_TESTS=OFF \
	-DTELVANE_BUILD_EXAMPLES=OFF

ifeq ($(BR2_PACKAGE_TELVANE_TOOL),y)
TELVANE_DEPENDENCIES += cli11 zlib zstd
TELVANE_CONF_OPTS += -DTELVANE_BUILD_TOOL=ON

# Whoever is to use the bus becomes a member of the group.
define TELVANE_USERS
	- -1 telvane -1 - - - - Telvane event bus
endef

define TELVANE_INSTALL_INIT_SYSTEMD
	$(INSTALL) -d $(TARGET_DIR)/usr/lib/systemd/system/sockets.target.wants
	ln -sf ../telvane.socket \
		$(TARGET_DIR)/usr/lib/systemd/system/sockets.target.wants/telvane.socket
endef
else
TELVANE_CONF_OPTS += -DTELVANE_BUILD_TOOL=OFF
endif

$(eval $(cmake-package))
