SUMMARY = "Firmware packages of a network camera, on the PC that builds"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=de57b228ea6a894884d7fee7bfaf5b9c"

# CLI11 and nlohmann-json are headers alone, of meta-oe.
DEPENDS = "cli11 nlohmann-json nettle virtual/crypt"
DEPENDS:class-native = "cli11-native nlohmann-json-native nettle-native libxcrypt-native"

inherit cmake externalsrc

EXTERNALSRC := "${@os.path.abspath(os.path.join(d.getVar('THISDIR'), '../../../..'))}"

EXTRA_OECMAKE = "-DZEP_TESTS=OFF -DZEP_WERROR=OFF"
OECMAKE_TARGET_COMPILE = "fwpkg"

do_install() {
    install -D -m 0755 ${B}/bin/fwpkg ${D}${bindir}/fwpkg
}

BBCLASSEXTEND = "native nativesdk"
