# SPDX-License-Identifier: MIT
# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vesk-archives)
set(CPACK_PACKAGE_CONTACT "Vesk archives maintainers <maintainers@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION
    "The native module behind the Vesk classes io.archives.TarArchiver and\n\
io.archives.TgzArchiver. It writes reproducible POSIX ustar archives, plain or\n\
gzip-wrapped, and unpacks what it can trust, whole or not at all.\n\
.\n\
vesk-archive makes and unpacks archives by the module without the Vesk runtime;\n\
vesk-host-check tells whether a runtime gives the module what it requires.")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-tree.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-again.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The stand-in host and the module lie in the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
include(CPack)
