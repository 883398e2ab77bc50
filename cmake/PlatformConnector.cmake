# SPDX-License-Identifier: Apache-2.0
# Device build: the platform ships the connector client library and its headers.
# Point ORN_PLATFORM_CONNECTOR_ROOT at its sysroot prefix.
set(ORN_PLATFORM_CONNECTOR_ROOT "" CACHE PATH "Prefix of the platform's connector library")
find_library(ORN_PLATFORM_CONNECTOR_LIB ornconnector HINTS ${ORN_PLATFORM_CONNECTOR_ROOT}/lib REQUIRED)
find_path(ORN_PLATFORM_CONNECTOR_INCLUDE ORNClient.h
          HINTS ${ORN_PLATFORM_CONNECTOR_ROOT}/include PATH_SUFFIXES ornconnector REQUIRED)
add_library(orn_platform_connector INTERFACE)
target_link_libraries(orn_platform_connector INTERFACE ${ORN_PLATFORM_CONNECTOR_LIB} orn_connector_api)
target_include_directories(orn_platform_connector SYSTEM INTERFACE ${ORN_PLATFORM_CONNECTOR_INCLUDE})
add_library(orn::connector ALIAS orn_platform_connector)
