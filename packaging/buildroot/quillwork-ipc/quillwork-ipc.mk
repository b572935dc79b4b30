################################################################################
#
# quillwork-ipc
#
################################################################################

# This package was not built where it was written; its version, its options
# and its licence's hash are compared with the project's.

QUILLWORK_IPC_VERSION = v0.1.0
# Where the maker keeps the sources; a release is a tag.
QUILLWORK_IPC_SITE = https://git.example.com/quillwork-ipc.git
QUILLWORK_IPC_SITE_METHOD = git
QUILLWORK_IPC_LICENSE = MIT
QUILLWORK_IPC_LICENSE_FILES = LICENSE
QUILLWORK_IPC_INSTALL_STAGING = YES
QUILLWORK_IPC_CONF_OPTS = \
	-DQUILLWORK_TOOLS=OFF \
	-DCMAKE_BUILD_TYPE=MinSizeRel

ifeq ($(BR2_PACKAGE_QUILLWORK_IPC_TOOLS),y)
QUILLWORK_IPC_DEPENDENCIES += cli11 fmt json-for-modern-cpp
QUILLWORK_IPC_CONF_OPTS += -DQUILLWORK_COMMAND_LINE=ON
else
QUILLWORK_IPC_CONF_OPTS += -DQUILLWORK_COMMAND_LINE=OFF
endif

$(eval $(cmake-package))
