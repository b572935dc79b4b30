SUMMARY = "A receiver's middleware for one presentation engine, over two Unix-domain sockets"
DESCRIPTION = "The shared library inside a digital-television receiver's middleware that gives a \
presentation engine in another process the broadcast, the tuner and the outputs."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=d017e433d08df3ffd29a6295488437d3"

# Where the maker keeps the sources; a release is a tag.
QUILLWORK_SRC ?= "git://git.example.com/quillwork-ipc.git;protocol=https;branch=main"
SRC_URI = "${QUILLWORK_SRC}"
SRCREV = "v${PV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

# The library alone; it refuses to be compiled for a big-endian processor.
EXTRA_OECMAKE = "-DQUILLWORK_TOOLS=OFF -DQUILLWORK_TESTS=OFF -DCMAKE_BUILD_TYPE=MinSizeRel"

PACKAGECONFIG ??= ""
PACKAGECONFIG[lto] = "-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON,-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=OFF"

FILES:${PN}-dev += "${datadir}/quillwork-ipc"
