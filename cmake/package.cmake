# SPDX-License-Identifier: MIT
# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vesk-archives)
set(CPACK_PACKAGE_CONTACT "Vesk archives maintainers <maintainers@example.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-permissions.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The stand-in host and the module lie in the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
include(CPack)
