# SPDX-License-Identifier: Apache-2.0
# Device build: the platform ships the connector client library (libornconnector), the JSON helper
# library (libZedLocalJsonUtil, which holds serialize) and their headers under one prefix,
# ORN_PLATFORM_CONNECTOR_ROOT, laid out as our own install lays it out. The prefix is taken as
# given, on a host as under a cross toolchain: never re-rooted into its sysroot (the NDK's
# toolchain re-roots every search), never replaced by a system folder.
set(ORN_PLATFORM_CONNECTOR_ROOT "" CACHE PATH "Prefix of the platform's connector library")
if(NOT IS_DIRECTORY "${ORN_PLATFORM_CONNECTOR_ROOT}")
  message(FATAL_ERROR "ORN_PLATFORM_CONNECTOR=ON needs -DORN_PLATFORM_CONNECTOR_ROOT=<prefix>, "
                      "the folder holding the platform's lib/ and include/ornconnector/")
endif()
set(ORN_PLATFORM_PARTS ORN_PLATFORM_CONNECTOR_LIB ORN_PLATFORM_JSONUTIL_LIB ORN_PLATFORM_CONNECTOR_INCLUDE)
if(NOT ORN_PLATFORM_CONNECTOR_ROOT STREQUAL ORN_PLATFORM_SEARCHED_ROOT)
  # Another prefix: what was found in the last one no longer holds.
  foreach(part ${ORN_PLATFORM_PARTS})
    unset(${part} CACHE)
  endforeach()
  set(ORN_PLATFORM_SEARCHED_ROOT ${ORN_PLATFORM_CONNECTOR_ROOT} CACHE INTERNAL "")
endif()
set(ORN_PLATFORM_WHERE NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_library(ORN_PLATFORM_CONNECTOR_LIB ornconnector
             PATHS ${ORN_PLATFORM_CONNECTOR_ROOT}/lib ${ORN_PLATFORM_WHERE})
find_library(ORN_PLATFORM_JSONUTIL_LIB ZedLocalJsonUtil
             PATHS ${ORN_PLATFORM_CONNECTOR_ROOT}/lib ${ORN_PLATFORM_WHERE})
find_path(ORN_PLATFORM_CONNECTOR_INCLUDE ORNClient.h PATHS ${ORN_PLATFORM_CONNECTOR_ROOT}/include
          PATH_SUFFIXES ornconnector ${ORN_PLATFORM_WHERE})
foreach(part ${ORN_PLATFORM_PARTS})
  if(NOT ${part})
    message(FATAL_ERROR "${ORN_PLATFORM_CONNECTOR_ROOT} has no libornconnector, "
                        "libZedLocalJsonUtil or include/ornconnector/ORNClient.h (${part})")
  endif()
endforeach()

# The platform's headers bring its own ORNRequest, which replaces ours (connector/api/envelope).
add_library(orn_platform_connector INTERFACE)
target_link_libraries(orn_platform_connector INTERFACE ${ORN_PLATFORM_CONNECTOR_LIB})
target_include_directories(orn_platform_connector SYSTEM INTERFACE ${ORN_PLATFORM_CONNECTOR_INCLUDE})
add_library(orn::connector ALIAS orn_platform_connector)
add_library(orn_platform_jsonutil INTERFACE)
target_link_libraries(orn_platform_jsonutil INTERFACE ${ORN_PLATFORM_JSONUTIL_LIB})
