# SPDX-License-Identifier: Apache-2.0
# Every dependency is a system package found here; nothing is vendored.
find_package(Threads REQUIRED)

include(${CMAKE_CURRENT_LIST_DIR}/HeaderOnly.cmake)

# The Android log API: the NDK's liblog on Android, android-liblog-dev on Linux hosts, where
# hostlog/ binds it at the first record.
if(ANDROID)
  find_library(ORN_LIBLOG log REQUIRED)
  add_library(orn_liblog INTERFACE)
  target_link_libraries(orn_liblog INTERFACE ${ORN_LIBLOG})
else()
  find_library(ORN_LIBLOG NAMES log PATH_SUFFIXES android
               PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
  find_path(ORN_LIBLOG_INCLUDE android/log.h PATH_SUFFIXES android)
  if(NOT ORN_LIBLOG OR NOT ORN_LIBLOG_INCLUDE)
    message(FATAL_ERROR "Android log library not found: install android-liblog-dev (scripts/bootstrap does)")
  endif()
  add_subdirectory(hostlog)
endif()
add_library(Android::log ALIAS orn_liblog)

if(ORN_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ORN_BUILD_BENCH)
  # Only the micro-benchmarks need it; the floor client and ornbench build without.
  find_package(benchmark QUIET)
endif()
