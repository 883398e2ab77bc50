# SPDX-License-Identifier: Apache-2.0
# cmake --install: the tools in bin/, the completions where bash-completion and zsh look, and
# our connector library with its public headers and a pkg-config file.
include(GNUInstallDirs)

set(ORN_COMPLETION ${PROJECT_SOURCE_DIR}/ornutility/clientcli/completion/orncli_completion.sh)
# The installed orncli keeps the run path it was linked with (none, unless a dependency sits in
# a private folder), and so does the build tree's: CMake's own would end in an empty entry, the
# current folder, which the loader searches for every library at each start.
set_target_properties(orncli PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON BUILD_WITH_INSTALL_RPATH ON)
install(TARGETS orncli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${ORN_COMPLETION} RENAME orncli
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${ORN_COMPLETION} RENAME _orncli DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)

if(NOT ORN_PLATFORM_CONNECTOR)
  install(TARGETS ornsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The library is static: its transport goes along, and the .pc file names both.
  install(TARGETS ornconnector orn_qipc ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  if(CMAKE_INTERPROCEDURAL_OPTIMIZATION)
    # Machine code beside the link-time IR, so the archives link without a compiler's LTO plugin.
    target_compile_options(ornconnector PRIVATE -ffat-lto-objects)
    target_compile_options(orn_qipc PRIVATE -ffat-lto-objects)
  endif()
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/connector/client/include/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ornconnector FILES_MATCHING PATTERN "*.h")
  install(FILES ${PROJECT_SOURCE_DIR}/connector/api/ORNRequest.h
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ornconnector)
  # Relative to the .pc file, so the tree may be installed under any prefix.
  file(RELATIVE_PATH ORN_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  # The library logs through liblog, which Debian keeps in a private folder.
  get_filename_component(ORN_LIBLOG_DIR ${ORN_LIBLOG} DIRECTORY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/ornconnector.pc.in ornconnector.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/ornconnector.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
