# This recipe was not built where it was written; its options and its licence's hash are compared with
# the project's.
SUMMARY = "A receiver's middleware for one presentation engine, over two Unix-domain sockets"
DESCRIPTION = "The shared library inside a digital-television receiver's middleware that gives a \
presentation engine in another process the broadcast, the tuner and the outputs."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=d017e433d08df3ffd29a6295488437d3"

# Where the maker keeps the sources. A release is a tag; the layer's configuration sets QUILLWORK_SRCREV
# to the hash of its commit, which no file of that commit can hold.
QUILLWORK_SRC ?= "git://git.example.com/quillwork-ipc.git;protocol=https;branch=main"
QUILLWORK_SRCREV ?= "v${PV}"
SRC_URI = "${QUILLWORK_SRC}"
SRCREV = "${QUILLWORK_SRCREV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

# The library and the client library; they refuse to be compiled for a big-endian processor.
EXTRA_OECMAKE = "-DQUILLWORK_TOOLS=OFF -DCMAKE_BUILD_TYPE=MinSizeRel"

# The command line needs headers alone; line editing comes with libedit.
PACKAGECONFIG ??= ""
PACKAGECONFIG[lto] = "-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON,-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=OFF"
PACKAGECONFIG[tools] = "-DQUILLWORK_COMMAND_LINE=ON,-DQUILLWORK_COMMAND_LINE=OFF,cli11 fmt nlohmann-json libedit"

PACKAGES =+ "${PN}-tools"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion"
FILES:${PN}-dev += "${datadir}/quillwork-ipc ${datadir}/gdb"
FILES:${PN}-doc += "${datadir}/licenses"
