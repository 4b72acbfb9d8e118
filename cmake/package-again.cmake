# SPDX-License-Identifier: MIT
# Run by CPack on the package that it has made. CPack writes the caller's umask into the package's outer
# headers. So Debian's own tool packs the same tree again.
set(tree ${CPACK_TOPLEVEL_DIRECTORY}/again)
file(REMOVE_RECURSE ${tree})
execute_process(COMMAND dpkg-deb --raw-extract ${CPACK_PACKAGE_FILES} ${tree}
    COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD ${tree} ${tree}/DEBIAN DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${CPACK_PACKAGE_FILES}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
