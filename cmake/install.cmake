# SPDX-License-Identifier: MIT
# The installed tree, which can be moved as a whole, and the CMake package in it.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/VeskArchives)
set(header_directory ${CMAKE_INSTALL_INCLUDEDIR}/vesk-archives)
set(module_directory ${CMAKE_INSTALL_LIBDIR}/vesk/modules)

# vesk_install_program(NAME COMPONENT): the program, its manual page and its completion.
function(vesk_install_program name component)
    install(TARGETS ${name})
    install(FILES ${component}/bash-completion/${name}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    configure_file(docs/man/${name}.1.in ${PROJECT_BINARY_DIR}/${name}.1 @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

# What a runtime includes to load the module, and to supply what it asks for.
add_library(vesk_host_interface INTERFACE)
add_library(VeskArchives::host_interface ALIAS vesk_host_interface)
target_compile_features(vesk_host_interface INTERFACE cxx_std_20)
target_include_directories(vesk_host_interface INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${header_directory}>)
set_target_properties(vesk_host_interface PROPERTIES EXPORT_NAME host_interface)
install(FILES module/host/host_runtime.h DESTINATION ${header_directory}/module/host)
install(FILES module/native_methods.h DESTINATION ${header_directory}/module)
install(TARGETS vesk_host_interface EXPORT VeskArchives)

# The search paths are relative, and the same in the build tree and after installation: CMake's own
# way is to link with the build tree's path and to edit it on installing, which leaves the length of
# that path in the file.
set(host_directory "$ORIGIN")
if(VESK_RUNTIME_LIBRARY)
    set(host_directory "$ORIGIN/../..")
endif()
set_target_properties(vesk_io_archives PROPERTIES
    EXPORT_NAME module BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${host_directory}")
target_link_libraries(vesk_io_archives INTERFACE vesk_host_interface)
install(TARGETS vesk_io_archives EXPORT VeskArchives LIBRARY DESTINATION ${module_directory})

if(TARGET vesk-host-check)
    vesk_install_program(vesk-host-check hostcheck)
endif()
if(NOT VESK_RUNTIME_LIBRARY)
    # Beside the module, since it is there for the programs of this project: no part of the system's
    # libraries, and without a version of its own.
    set_target_properties(vesk_standin_host PROPERTIES EXPORT_NAME standin_host)
    target_link_libraries(vesk_standin_host INTERFACE vesk_host_interface)
    install(TARGETS vesk_standin_host EXPORT VeskArchives LIBRARY DESTINATION ${module_directory})
    install(FILES standinhost/standin_host.h DESTINATION ${header_directory}/standinhost)

    # The first directory is that of an installation, the second that of the build tree.
    get_target_property(modules vesk-archive VESK_MODULE_DIRECTORY)
    set_target_properties(vesk-archive PROPERTIES
        BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN/${modules};$ORIGIN/../lib")
    vesk_install_program(vesk-archive commandline)
endif()
set(document_directory ${CMAKE_INSTALL_DATADIR}/doc/vesk-archives)
install(FILES packaging/copyright DESTINATION ${document_directory})
install(FILES CHANGELOG.md docs/formats.md docs/hosting.md docs/messages.md
    DESTINATION ${document_directory})

install(EXPORT VeskArchives NAMESPACE VeskArchives:: DESTINATION ${package_directory}
    FILE VeskArchivesConfig.cmake)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeskArchivesConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VeskArchivesConfigVersion.cmake DESTINATION ${package_directory})

if(PROJECT_IS_TOP_LEVEL)
    include(cmake/package.cmake)
endif()
