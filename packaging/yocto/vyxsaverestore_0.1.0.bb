# For a layer that has meta-qt6 (qt6-cmake, qtbase) and meta-oe (libdeflate) below it. The sources come as an archive
# beside this file, made in the project by: git archive --prefix=vyxsaverestore-0.1.0/ -o vyxsaverestore-0.1.0.tar.gz HEAD
SUMMARY = "Save/restore service of a device's middleware"
DESCRIPTION = "One process on D-Bus keeps a copy of the other modules' files, directories and SQLite databases in a \
repository, which is a directory or an HTTP(S) server, and puts them back from there."
SECTION = "base"
# No licence has been granted.
LICENSE = "CLOSED"

SRC_URI = "file://vyxsaverestore-${PV}.tar.gz"
S = "${WORKDIR}/vyxsaverestore-${PV}"

# curl has to be built with OpenSSL and HTTP/2: PACKAGECONFIG:append:pn-curl = " openssl nghttp2".
DEPENDS = "qtbase qtbase-native sqlite3 curl openssl libarchive libdeflate zlib"
RDEPENDS:${PN} = "dbus sqlite3"

inherit qt6-cmake systemd useradd

# Prefix maps and SOURCE_DATE_EPOCH are the build system's own.
EXTRA_OECMAKE = "-DSAVERESTORE_DEVICE=OFF -DBUILD_TESTING=OFF -DSAVERESTORE_HARDENED=ON"
# Who is asked about weaknesses.
EXTRA_OECMAKE += "${@'-DSAVERESTORE_CONTACT="%s"' % d.getVar('VYXSAVERESTORE_CONTACT') if d.getVar('VYXSAVERESTORE_CONTACT') else ''}"

do_install:append() {
    # What is only for Debian, and units where this distribution has them.
    rm -rf ${D}${datadir}/lintian
    if [ "${systemd_system_unitdir}" != "${prefix}/lib/systemd/system" ]; then
        install -d ${D}${systemd_system_unitdir}
        mv ${D}${prefix}/lib/systemd/system/* ${D}${systemd_system_unitdir}/
        rmdir -p --ignore-fail-on-non-empty ${D}${prefix}/lib/systemd/system
    fi
}

SYSTEMD_SERVICE:${PN} = "vyxsaverestore.service"
USERADD_PACKAGES = "${PN}"
GROUPADD_PARAM:${PN} = "--system vyxapplication"
FILES:${PN} += "${systemd_system_unitdir} ${prefix}/lib/sysusers.d ${prefix}/lib/tmpfiles.d ${datadir}/dbus-1"
