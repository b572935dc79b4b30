################################################################################
#
# quillwork-ipc
#
################################################################################

QUILLWORK_IPC_VERSION = v0.1.0
# Where the maker keeps the sources; a release is a tag.
QUILLWORK_IPC_SITE = https://git.example.com/quillwork-ipc.git
QUILLWORK_IPC_SITE_METHOD = git
QUILLWORK_IPC_LICENSE = MIT
QUILLWORK_IPC_LICENSE_FILES = LICENSE
QUILLWORK_IPC_INSTALL_STAGING = YES
QUILLWORK_IPC_CONF_OPTS = \
	-DQUILLWORK_TOOLS=OFF \
	-DQUILLWORK_TESTS=OFF \
	-DCMAKE_BUILD_TYPE=MinSizeRel

$(eval $(cmake-package))
