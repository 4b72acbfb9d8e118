# SPDX-License-Identifier: MIT
# Run by CPack on the tree that it is about to pack. Adds the changelog, compresses the manuals, and sets
# modes and times, so that every build gives the same package.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(changelog ${CMAKE_CURRENT_LIST_DIR}/../packaging/changelog)

file(COPY ${changelog} DESTINATION ${root}/share/doc/${CPACK_PACKAGE_NAME})
file(GLOB_RECURSE manuals ${root}/share/man/*)
execute_process(COMMAND gzip -9n ${manuals} ${root}/share/doc/${CPACK_PACKAGE_NAME}/changelog
    COMMAND_ERROR_IS_FATAL ANY)

# Whatever the umask of whoever makes the package.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
        WORLD_READ WORLD_EXECUTE)
file(GLOB programs ${root}/bin/*)
file(CHMOD ${programs} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)

# The time of the release unless another one is given. CPack takes it for the package's own files.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    execute_process(COMMAND dpkg-parsechangelog -l ${changelog} -S Timestamp
        OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(ENV{SOURCE_DATE_EPOCH} ${time})
endif()
execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -exec
    touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} "{}" +
    COMMAND_ERROR_IS_FATAL ANY)
