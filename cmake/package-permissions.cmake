# SPDX-License-Identifier: MIT
# Run by CPack on the tree that it is about to pack: whoever installs the package may enter its
# directories, whatever the umask of whoever made it.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY} DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
