# What cmake --install puts in place (GNUInstallDirs paths under the prefix):
#   bin/kofd                       the tool, with RPATH $ORIGIN/../lib
#   lib/libkofd.so.3.0.1, .so.3, .so
#   include/kofd/...               the public headers, with their src/ layout
#   lib/cmake/kofd/                find_package(kofd CONFIG): kofd::kofd
#   lib/pkgconfig/kofd.pc
# On Windows the DLL (with its own C++ runtime) is all there is to install: its C++ classes are
# not exported, so no headers or package go with it.

if(WIN32)
  install(TARGETS kofd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  return()
endif()

include(CMakePackageConfigHelpers)

# The public headers: what a program needs to open an object, walk its symbols, evaluate its
# relocations and handle errors -- object/kofd_elf.h, sections/symbol_table.h,
# reloc/relocation_tables.h, frame/exception.h and everything they include, no more. They keep
# their src/ paths under include/kofd, so their own #include "frame/..." lines resolve there.
# The install_and_embed test builds the example against the installed copy only, so a header
# missing from this list fails it.
set(KOFD_PUBLIC_HEADERS
  frame/byte_view.h
  frame/error.h
  frame/exception.h
  frame/file.h
  frame/fileio.h
  frame/types.h
  frame/unknown.h
  object/kelf_header.h
  object/kelf_records.h
  object/kofd_elf.h
  platform/platform.h
  present/browse.h
  present/dump.h
  reloc/expression_table.h
  reloc/expression_visitors.h
  reloc/relocation_tables.h
  sections/base_table.h
  sections/hash_section_table.h
  sections/hash_table.h
  sections/name_slots.h
  sections/section.h
  sections/storage.h
  sections/string_table.h
  sections/symbol_table.h
)
foreach(header IN LISTS KOFD_PUBLIC_HEADERS)
  get_filename_component(folder "${header}" DIRECTORY)
  install(FILES "${PROJECT_SOURCE_DIR}/src/${header}"
          DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kofd/${folder}" COMPONENT devel)
endforeach()

install(TARGETS kofd_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(TARGETS kofd EXPORT kofdTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT devel
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kofd)

set(KOFD_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/kofd")
install(EXPORT kofdTargets NAMESPACE kofd:: DESTINATION "${KOFD_CMAKE_DIR}" COMPONENT devel)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kofdConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/kofdConfig.cmake" INSTALL_DESTINATION "${KOFD_CMAKE_DIR}")
# The SONAME changes with the major version, so only a request for the same major version fits.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kofdConfigVersion.cmake"
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/kofdConfig.cmake" "${PROJECT_BINARY_DIR}/kofdConfigVersion.cmake"
        DESTINATION "${KOFD_CMAKE_DIR}" COMPONENT devel)

file(RELATIVE_PATH KOFD_PC_TO_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" KOFD_PC_TO_PREFIX "${KOFD_PC_TO_PREFIX}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/kofd.pc.in" "${PROJECT_BINARY_DIR}/kofd.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kofd.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT devel)

# The man page, made at build time from the tool's --help texts (cmake/make_manpage.cmake).
add_custom_command(OUTPUT "${PROJECT_BINARY_DIR}/kofd.1"
  COMMAND "${CMAKE_COMMAND}" -DKOFD=$<TARGET_FILE:kofd_cli> -DVERSION=${PROJECT_VERSION}
          -DOUTPUT=${PROJECT_BINARY_DIR}/kofd.1 -P "${PROJECT_SOURCE_DIR}/cmake/make_manpage.cmake"
  DEPENDS kofd_cli "${PROJECT_SOURCE_DIR}/cmake/make_manpage.cmake"
  COMMENT "Writing the kofd(1) man page from kofd --help" VERBATIM)
add_custom_target(kofd_manpage ALL DEPENDS "${PROJECT_BINARY_DIR}/kofd.1")
install(FILES "${PROJECT_BINARY_DIR}/kofd.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT runtime)

# bash completion: commands and options asked of the installed tool's --help as one types.
install(FILES "${PROJECT_SOURCE_DIR}/cli/kofd.bash-completion"
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions" RENAME kofd COMPONENT runtime)

# cpack -G DEB in the build directory: one package, kofd_VERSION_ARCH.deb, installing under /usr.
set(CPACK_PACKAGE_NAME kofd)
set(CPACK_PACKAGE_VENDOR "kofd")
set(CPACK_PACKAGE_CONTACT "kofd maintainers <kofd@kofd.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "KELF objects and !<arch> archives: the kofd tool and libkofd")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX "${PROJECT_BINARY_DIR}/packages")
include(CPack)
