# SPDX-License-Identifier: Apache-2.0
# Release builds are sized for a small device that starts orncli many times a minute: every
# byte of the binary is mapped and every page touched at start costs time. Measured effect
# of each flag in docs/performance.md.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  # -Os after the build type's -O3: the tool waits on a socket, not on its own code.
  add_compile_options(-Os -ffunction-sections -fdata-sections)
  if(ANDROID)
    # clang's -Oz: smaller still, for the device's size budget.
    add_compile_options(-Oz)
  endif()
  # Drop unreferenced sections and unneeded libraries; sort the dynamic hash for lookups.
  add_link_options(-Wl,--gc-sections -Wl,--as-needed -Wl,-O1 -Wl,--hash-style=gnu)
  # Fold identical functions (lld; the template copies RapidJSON and the standard library leave).
  include(CheckLinkerFlag)
  check_linker_flag(CXX -Wl,--icf=all ORN_HAVE_ICF)
  if(ORN_HAVE_ICF)
    add_link_options(-Wl,--icf=all)
  endif()
  if(ANDROID)
    # Android's packed relocations, which bionic reads from API 23 (3.2 KB off orncli).
    add_link_options(-Wl,--pack-dyn-relocs=android)
  endif()
  if(ANDROID AND NOT CMAKE_ANDROID_NDK_VERSION)
    # The NDK's legacy toolchain file does not tell CMake the NDK's version, so CMake takes it
    # for one older than r22 and links LTO with gold, which the NDK no longer ships (CMake's own
    # check then fails and LTO is silently off). The NDK's default linker, lld, links LTO itself.
    set(CMAKE_CXX_LINK_OPTIONS_IPO "")
    set(ORN_LTO ON)
  else()
    include(CheckIPOSupported)
    check_ipo_supported(RESULT ORN_LTO OUTPUT ORN_LTO_WHY LANGUAGES CXX)
  endif()
  if(ORN_LTO)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  else()
    message(STATUS "No link-time optimisation: ${ORN_LTO_WHY}")
  endif()
endif()
