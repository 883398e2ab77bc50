# SPDX-License-Identifier: Apache-2.0
# Header-only dependencies: RapidJSON and Asio. Their headers serve any target, so a cross build
# whose toolchain searches only its own sysroot (the NDK's) takes the host's copy as well. Such a
# copy is mirrored into the build tree: its folder (/usr/include) holds glibc's headers, which must
# never meet bionic's on the include path.

# orn_find_headers(<var> <header>): the folder holding <header>, in the target's search paths
# first, then, when cross-compiling, on the host.
function(orn_find_headers var header)
  find_path(${var} ${header} HINTS ${ARGN})
  if(NOT ${var} AND CMAKE_CROSSCOMPILING)
    find_path(${var} ${header} HINTS ${ARGN} NO_CMAKE_FIND_ROOT_PATH)
  endif()
endfunction()

# orn_mirror_headers(<out var> <name> <folder> <entries>...): copies the entries (files or folders)
# of <folder> into the build tree and gives the copy's folder.
function(orn_mirror_headers out name dir)
  set(copy ${PROJECT_BINARY_DIR}/deps/${name}/include)
  foreach(entry ${ARGN})
    file(COPY ${dir}/${entry} DESTINATION ${copy})
  endforeach()
  set(${out} ${copy} PARENT_SCOPE)
endfunction()

# RapidJSON. Release 1.1.0 (Debian's) assigns to a const member in GenericStringRef's copy
# assignment, which clang 19 rejects even when nothing calls it; a copy with that operator deleted
# (as later releases have it) is used instead of such headers, any other release as it is.
find_package(RapidJSON CONFIG QUIET)
orn_find_headers(ORN_RAPIDJSON_INCLUDE_DIR rapidjson/document.h ${RAPIDJSON_INCLUDE_DIRS})
if(NOT ORN_RAPIDJSON_INCLUDE_DIR)
  message(FATAL_ERROR "RapidJSON not found: install rapidjson-dev (scripts/bootstrap does), or "
                      "point ORN_RAPIDJSON_INCLUDE_DIR at the folder holding rapidjson/")
endif()
set(ORN_RAPIDJSON_DEFECT
    "GenericStringRef& operator=(const GenericStringRef& rhs) { s = rhs.s; length = rhs.length; }")
file(READ ${ORN_RAPIDJSON_INCLUDE_DIR}/rapidjson/document.h ORN_RAPIDJSON_DOCUMENT)
string(FIND "${ORN_RAPIDJSON_DOCUMENT}" "${ORN_RAPIDJSON_DEFECT}" ORN_RAPIDJSON_DEFECT_AT)
set(ORN_RAPIDJSON_USED ${ORN_RAPIDJSON_INCLUDE_DIR})
if(ANDROID OR NOT ORN_RAPIDJSON_DEFECT_AT EQUAL -1)
  orn_mirror_headers(ORN_RAPIDJSON_USED rapidjson ${ORN_RAPIDJSON_INCLUDE_DIR} rapidjson)
  if(NOT ORN_RAPIDJSON_DEFECT_AT EQUAL -1)
    string(REPLACE "${ORN_RAPIDJSON_DEFECT}"
                   "GenericStringRef& operator=(const GenericStringRef& rhs) = delete;"
                   ORN_RAPIDJSON_DOCUMENT "${ORN_RAPIDJSON_DOCUMENT}")
    file(WRITE ${ORN_RAPIDJSON_USED}/rapidjson/document.h "${ORN_RAPIDJSON_DOCUMENT}")
    message(STATUS "RapidJSON: ${ORN_RAPIDJSON_INCLUDE_DIR}, used through a copy with "
                   "GenericStringRef's copy assignment deleted")
  endif()
endif()
add_library(orn_rapidjson INTERFACE)
target_include_directories(orn_rapidjson SYSTEM INTERFACE ${ORN_RAPIDJSON_USED})
add_library(RapidJSON::RapidJSON ALIAS orn_rapidjson)

# Standalone Asio, for ornsim only.
if(NOT ORN_PLATFORM_CONNECTOR)
  orn_find_headers(ORN_ASIO_INCLUDE_DIR asio.hpp)
  if(NOT ORN_ASIO_INCLUDE_DIR)
    message(FATAL_ERROR "Asio (standalone) not found, which ornsim needs: install libasio-dev "
                        "(scripts/bootstrap does), or point ORN_ASIO_INCLUDE_DIR at the folder "
                        "holding asio.hpp")
  endif()
  set(ORN_ASIO_USED ${ORN_ASIO_INCLUDE_DIR})
  if(ANDROID)
    orn_mirror_headers(ORN_ASIO_USED asio ${ORN_ASIO_INCLUDE_DIR} asio.hpp asio)
  endif()
  add_library(orn_asio INTERFACE)
  target_include_directories(orn_asio SYSTEM INTERFACE ${ORN_ASIO_USED})
  # The standalone library, never Boost's; no Boost headers are looked for.
  target_compile_definitions(orn_asio INTERFACE ASIO_STANDALONE)
endif()
