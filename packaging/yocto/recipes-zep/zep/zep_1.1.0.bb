SUMMARY = "Tools of a network camera in one executable"
DESCRIPTION = "Bring-up, firmware upgrade and factory tests of a network camera, with the runtime library \
and the audio media platform that its programs share."
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=de57b228ea6a894884d7fee7bfaf5b9c"

DEPENDS = "virtual/crypt"

inherit cmake externalsrc

# The layer stands in the source itself, three folders above this recipe's layer.
EXTERNALSRC := "${@os.path.abspath(os.path.join(d.getVar('THISDIR'), '../../../..'))}"

EXTRA_OECMAKE = "-DZEP_DEVICE=ON -DZEP_TESTS=OFF -DZEP_WERROR=OFF"

# All libraries are static ones: nothing can be built with the headers alone.
RDEPENDS:${PN}-dev += "${PN}-staticdev"

COMPATIBLE_HOST = "arm.*-linux.*"
