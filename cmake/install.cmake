# SPDX-License-Identifier: MIT
# The installed tree, which can be moved as a whole, the CMake package in it, and the Debian package.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/VeskArchives)
set(header_directory ${CMAKE_INSTALL_INCLUDEDIR}/vesk-archives)
set(module_directory ${CMAKE_INSTALL_LIBDIR}/vesk/modules)

# vesk_install_program(NAME): the program and its manual page.
function(vesk_install_program name)
    install(TARGETS ${name})
    configure_file(docs/man/${name}.1.in ${PROJECT_BINARY_DIR}/${name}.1 @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

# vesk_find_libraries(TARGET FILE DIRECTORY...): where TARGET, installed as FILE, looks for libraries
# of this project; in the build tree it looks in their directory there first. CMake's own way is to
# link with another path and to edit it on installing, for which it pads the path with an empty
# element: that would stand for the working directory of whoever runs the program.
function(vesk_find_libraries target file)
    set(here ${PROJECT_BINARY_DIR}/lib)
    if(VESK_RUNTIME_LIBRARY)
        get_filename_component(here ${VESK_RUNTIME_LIBRARY} DIRECTORY)
    endif()
    set_target_properties(${target} PROPERTIES
        INSTALL_RPATH "${here};${ARGN}" BUILD_WITH_INSTALL_RPATH ON)
    string(REPLACE ";" ":" path "${ARGN}")
    string(REPLACE "$" "\\$" path "${path}")
    install(CODE "file(RPATH_SET FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${file}\"
        NEW_RPATH \"${path}\")")
endfunction()

# What a runtime includes to load the module, and to supply what it asks for.
add_library(vesk_host_interface INTERFACE)
target_compile_features(vesk_host_interface INTERFACE cxx_std_20)
target_include_directories(vesk_host_interface INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${header_directory}>)
set_target_properties(vesk_host_interface PROPERTIES EXPORT_NAME host_interface)
install(FILES module/host/host_runtime.h DESTINATION ${header_directory}/module/host)
install(FILES module/native_methods.h DESTINATION ${header_directory}/module)
install(TARGETS vesk_host_interface EXPORT VeskArchives)

set_target_properties(vesk_io_archives PROPERTIES EXPORT_NAME module)
install(TARGETS vesk_io_archives EXPORT VeskArchives LIBRARY DESTINATION ${module_directory})
vesk_find_libraries(vesk_io_archives ${module_directory}/libvesk_io_archives.so "$ORIGIN/../..")

vesk_install_program(vesk-host-check)
if(NOT VESK_RUNTIME_LIBRARY)
    set_target_properties(vesk_standin_host PROPERTIES EXPORT_NAME standin_host)
    target_link_libraries(vesk_standin_host INTERFACE vesk_host_interface)
    install(TARGETS vesk_standin_host EXPORT VeskArchives)
    install(FILES standinhost/standin_host.h DESTINATION ${header_directory}/standinhost)

    vesk_install_program(vesk-archive)
    vesk_find_libraries(vesk-archive ${CMAKE_INSTALL_BINDIR}/vesk-archive
        "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(FILES commandline/bash-completion/vesk-archive
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()
install(FILES LICENSE RENAME copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vesk-archives)

install(EXPORT VeskArchives NAMESPACE VeskArchives:: DESTINATION ${package_directory}
    FILE VeskArchivesConfig.cmake)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeskArchivesConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VeskArchivesConfigVersion.cmake DESTINATION ${package_directory})

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
