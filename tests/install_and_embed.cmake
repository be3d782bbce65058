# install_and_embed: installs the build to a prefix inside the build tree, then builds
# examples/embed against that prefix only -- once through find_package(kofd), once through
# pkg-config when there is one -- and runs both on examples/sample.o.
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -DCXX=... -DGENERATOR=... -DLIBDIR=lib
#         [-DPKG_CONFIG=...]
#         -P install_and_embed.cmake
cmake_minimum_required(VERSION 3.25)
foreach(variable BUILD_DIR SOURCE_DIR WORK_DIR CXX GENERATOR LIBDIR)
  if(NOT ${variable})
    message(FATAL_ERROR "install_and_embed: ${variable} is not set")
  endif()
endforeach()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "install_and_embed: failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

# What the example must print for examples/sample.o: a known symbol and an evaluated relocation.
function(check_output label text)
  if(NOT text MATCHES "symbol [0-9]+ led_toggle value 0x")
    message(FATAL_ERROR "install_and_embed: ${label}: no symbol led_toggle in:\n${text}")
  endif()
  if(NOT text MATCHES "relocations [^\n]*: [1-9]" OR NOT text MATCHES "  [0-9]+ = 0x[0-9A-F]+  ")
    message(FATAL_ERROR "install_and_embed: ${label}: no evaluated relocation in:\n${text}")
  endif()
endfunction()

set(prefix "${WORK_DIR}/prefix")
set(sample "${SOURCE_DIR}/examples/sample.o")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")

# The layout: the tool, the library with its SONAME link, a public include tree, the package files.
foreach(path bin/kofd ${LIBDIR}/libkofd.so ${LIBDIR}/libkofd.so.3 include/kofd/object/kofd_elf.h
             include/kofd/frame/exception.h ${LIBDIR}/cmake/kofd/kofdConfig.cmake
             ${LIBDIR}/cmake/kofd/kofdConfigVersion.cmake ${LIBDIR}/cmake/kofd/kofdTargets.cmake
             ${LIBDIR}/pkgconfig/kofd.pc
             share/man/man1/kofd.1 share/bash-completion/completions/kofd)
  if(NOT EXISTS "${prefix}/${path}")
    message(FATAL_ERROR "install_and_embed: ${path} is not installed")
  endif()
endforeach()
file(GLOB_RECURSE cpp_files "${prefix}/include/*.cpp")
if(cpp_files)
  message(FATAL_ERROR "install_and_embed: sources installed among the headers: ${cpp_files}")
endif()

file(READ "${prefix}/share/man/man1/kofd.1" page)
if(NOT page MATCHES "\n\\.SS \"kofd ar list\"\n")
  message(FATAL_ERROR "install_and_embed: the man page has no section for kofd ar list")
endif()
find_program(BASH bash)
if(BASH)
  run("${BASH}" -n "${prefix}/share/bash-completion/completions/kofd")
endif()

# The installed tool finds the installed library through its RPATH alone.
set(ENV{LD_LIBRARY_PATH} "")
run("${prefix}/bin/kofd" info "${sample}")

# find_package(kofd CONFIG) with CMAKE_PREFIX_PATH.
run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}/examples/embed" -B "${WORK_DIR}/embed-cmake" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/embed-cmake")
run("${WORK_DIR}/embed-cmake/embed" "${sample}")
check_output("find_package build" "${run_output}")

# Another major version is refused: the SONAME changes with it.
file(WRITE "${WORK_DIR}/major/CMakeLists.txt"
     "cmake_minimum_required(VERSION 3.16)\nproject(major LANGUAGES NONE)\nfind_package(kofd 4 CONFIG REQUIRED)\n")
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${WORK_DIR}/major" -B "${WORK_DIR}/major/build" -G "${GENERATOR}"
                "-DCMAKE_PREFIX_PATH=${prefix}" RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE err)
if(result EQUAL 0 OR NOT err MATCHES "3\\.0\\.1")
  message(FATAL_ERROR "install_and_embed: find_package(kofd 4) was not refused by version 3.0.1:\n${err}")
endif()

# A damaged object: a message and exit 2, no uncaught exception.
execute_process(COMMAND "${WORK_DIR}/embed-cmake/embed" "${SOURCE_DIR}/examples/sample_cut.o"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT result EQUAL 2 OR NOT err MATCHES "^embed: .*sample_cut.o: ")
  message(FATAL_ERROR "install_and_embed: a damaged object gave ${result}: ${err}")
endif()

# pkg-config: kofd.pc found through PKG_CONFIG_PATH only.
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
  set(ENV{PKG_CONFIG_LIBDIR} "${prefix}/${LIBDIR}/pkgconfig")
  run("${PKG_CONFIG}" --cflags --libs kofd)
  separate_arguments(flags UNIX_COMMAND "${run_output}")
  file(MAKE_DIRECTORY "${WORK_DIR}/embed-pkgconfig")
  run("${CXX}" -std=c++17 "${SOURCE_DIR}/examples/embed/embed.cpp" ${flags} -o "${WORK_DIR}/embed-pkgconfig/embed")
  set(ENV{LD_LIBRARY_PATH} "${prefix}/${LIBDIR}")
  run("${WORK_DIR}/embed-pkgconfig/embed" "${sample}")
  check_output("pkg-config build" "${run_output}")
  message(STATUS "install_and_embed: find_package and pkg-config builds work")
else()
  message(STATUS "install_and_embed: find_package build works; no pkg-config, its build is skipped")
endif()
