SUMMARY = "Message bus and typed records for arc-welding equipment"
DESCRIPTION = "Processes of one machine publish typed records on named channels and receive what they have \
subscribed to, over a Unix-domain socket."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=6c3fee9e458d54632be3f8b7a77ba15e"

# Where the sources are, as your layer or local.conf knows: TELVANE_GIT = "git://host/telvane.git;protocol=https".
TELVANE_GIT ?= "git:///srv/git/telvane.git;protocol=file"
SRC_URI = "${TELVANE_GIT};branch=main"
SRCREV ?= "${AUTOREV}"
S = "${WORKDIR}/git"

# cjson and cli11 are of meta-openembedded (meta-oe).
DEPENDS = "cjson cli11 util-linux-libuuid zlib zstd"

inherit cmake pkgconfig systemd useradd

EXTRA_OECMAKE = "\
    -DTELVANE_BUILD_TESTS=OFF \
    -DTELVANE_BUILD_EXAMPLES=OFF \
    -DTELVANE_UNIT_DIR=${systemd_system_unitdir} \
"

PACKAGE_BEFORE_PN = "${PN}-tools"
FILES:${PN}-tools = "\
    ${bindir}/telvane \
    ${systemd_system_unitdir} \
    ${datadir}/bash-completion \
    ${datadir}/zsh \
"
RDEPENDS:${PN}-tools = "${PN}"

# Whoever is to use the bus becomes a member of the group. The socket is served from boot on.
USERADD_PACKAGES = "${PN}-tools"
GROUPADD_PARAM:${PN}-tools = "--system telvane"
SYSTEMD_PACKAGES = "${PN}-tools"
SYSTEMD_SERVICE:${PN}-tools = "telvane.socket telvane.service"
SYSTEMD_AUTO_ENABLE:${PN}-tools = "enable"

do_install:append() {
    if ! ${@bb.utils.contains('DISTRO_FEATURES', 'systemd', 'true', 'false', d)}; then
        rm -rf ${D}${systemd_system_unitdir}
    fi
}
