# SPDX-License-Identifier: Apache-2.0
# cmake --install: the tools in bin/, their man pages and the completions where bash-completion
# and zsh look (not on Android, which has no bash), and our connector library laid out as the
# platform's is: the connector library and the JSON helper library (libZedLocalJsonUtil) in lib/,
# their headers, a CMake package config and a pkg-config file. With -DBUILD_SHARED_LIBS=ON both
# are shared libraries, which is the prefix -DORN_PLATFORM_CONNECTOR_ROOT takes.
include(GNUInstallDirs)
include(CheckCXXCompilerFlag)

set(ORN_TOOLS orncli)
if(NOT ORN_PLATFORM_CONNECTOR)
  list(APPEND ORN_TOOLS ornsim)
endif()
if(ANDROID)
  # Devices carry no libc++_shared.so: the install puts the NDK's in lib/, where the tools' run
  # path finds it (bionic reads DT_RUNPATH and $ORIGIN from API 24).
  set_target_properties(${ORN_TOOLS} PROPERTIES INSTALL_RPATH "\$ORIGIN/../${CMAKE_INSTALL_LIBDIR}"
                                                BUILD_WITH_INSTALL_RPATH ON)
  if(ANDROID_STL STREQUAL "c++_shared")
    find_library(ORN_CXX_SHARED_RUNTIME c++_shared REQUIRED)
    install(FILES ${ORN_CXX_SHARED_RUNTIME} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT connector)
  endif()
else()
  if(NOT ORN_PLATFORM_CONNECTOR)
    # The installed orncli keeps the run path it was linked with (none, unless a dependency sits
    # in a private folder), and so does the build tree's: CMake's own would end in an empty
    # entry, the current folder, which the loader searches for every library at each start.
    # A device build keeps CMake's build run path, which reaches the platform's libraries, and
    # installs with none: there the loader finds them in the system's folders.
    set_target_properties(orncli PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON BUILD_WITH_INSTALL_RPATH ON)
  endif()
  set(ORN_COMPLETION ${PROJECT_SOURCE_DIR}/ornutility/clientcli/completion/orncli_completion.sh)
  install(FILES ${ORN_COMPLETION} RENAME orncli
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${ORN_COMPLETION} RENAME _orncli
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  foreach(tool ${ORN_TOOLS})
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
endif()
install(TARGETS ${ORN_TOOLS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

if(ORN_PLATFORM_CONNECTOR)
  return()
endif()

set(ORN_LIBS ornconnector orn_jsonutil)
get_target_property(ORN_CONNECTOR_TYPE ornconnector TYPE)
if(ORN_CONNECTOR_TYPE STREQUAL "STATIC_LIBRARY")
  # A static library's transport goes along; the package files name it.
  list(APPEND ORN_LIBS orn_qipc)
  set(ORN_PKG_TYPE STATIC)
  if(CMAKE_INTERPROCEDURAL_OPTIMIZATION)
    # Machine code beside the link-time IR, so the archives link without a compiler's LTO
    # plugin; clang before 18 rejects the flag.
    check_cxx_compiler_flag(-ffat-lto-objects ORN_HAVE_FAT_LTO)
    if(ORN_HAVE_FAT_LTO)
      foreach(lib ${ORN_LIBS})
        target_compile_options(${lib} PRIVATE -ffat-lto-objects)
      endforeach()
    endif()
  endif()
else()
  set(ORN_PKG_TYPE SHARED)
endif()
# Component "connector" alone (cmake --install <build> --component connector) is the library's
# prefix without the tools.
install(TARGETS ${ORN_LIBS} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT connector
                            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT connector)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/connector/client/include/
                  ${PROJECT_SOURCE_DIR}/connector/api/envelope/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ornconnector COMPONENT connector
        FILES_MATCHING PATTERN "*.h")
# ORNEvent.h takes the event numbers from the protocol header, so it goes along.
install(FILES ${PROJECT_SOURCE_DIR}/connector/protocol/QipcProtocol.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ornconnector COMPONENT connector)
install(FILES ${PROJECT_SOURCE_DIR}/jsonutil/Serialize.h ${PROJECT_SOURCE_DIR}/jsonutil/JsonTypes.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zedLocalJsonUtil COMPONENT connector)

# What a static connector library needs beside itself: the log library and threads. On Android
# liblog is in every process and found by name; Debian keeps it in a private folder.
if(ANDROID)
  set(ORN_PKG_LIBLOG "-llog")
  set(ORN_PKG_LIBLOG_CMAKE "log")
else()
  get_filename_component(ORN_LIBLOG_DIR ${ORN_LIBLOG} DIRECTORY)
  set(ORN_PKG_LIBLOG "-L${ORN_LIBLOG_DIR} -Wl,-rpath,${ORN_LIBLOG_DIR} -llog")
  set(ORN_PKG_LIBLOG_CMAKE "${ORN_LIBLOG}")
endif()
if(ORN_PKG_TYPE STREQUAL "STATIC")
  set(ORN_PKG_LIBS "-lornconnector -lorn_qipc ${ORN_PKG_LIBLOG} -pthread")
else()
  set(ORN_PKG_LIBS "-lornconnector")
endif()
set(ORN_PKG_LIB_PREFIX ${CMAKE_${ORN_PKG_TYPE}_LIBRARY_PREFIX})
set(ORN_PKG_LIB_SUFFIX ${CMAKE_${ORN_PKG_TYPE}_LIBRARY_SUFFIX})
# Both files find the prefix relative to themselves, so the tree may be installed (or pushed)
# anywhere.
file(RELATIVE_PATH ORN_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
file(RELATIVE_PATH ORN_CONFIG_PREFIX /${CMAKE_INSTALL_LIBDIR}/cmake/ornconnector /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/ornconnector.pc.in ornconnector.pc @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/ornconnectorConfig.cmake.in ornconnectorConfig.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ornconnector.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT connector)
install(FILES ${PROJECT_BINARY_DIR}/ornconnectorConfig.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ornconnector COMPONENT connector)
