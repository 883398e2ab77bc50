# SPDX-License-Identifier: Apache-2.0
# Warnings and tooling for our own targets only; third-party headers stay untouched.
# Warnings are errors in our presets and CI (ORN_WERROR); a packager's newer compiler may warn
# about what ours does not, so elsewhere they stay warnings.
function(orn_target target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor)
  if(ORN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(ORN_CLANG_TIDY)
    set_target_properties(${target} PROPERTIES CXX_CLANG_TIDY "clang-tidy")
  endif()
endfunction()

# orn_test(<name> SOURCES ... LIBS ...): one GoogleTest binary per folder, each TEST a ctest entry.
function(orn_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  orn_target(${name})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 30 PROPERTIES LABELS "${T_LABELS}")
endfunction()

# orn_fuzz_target(<name> SOURCES ... LIBS ...): a libFuzzer executable, part of `fuzz_targets`. The
# fuzz preset instruments every target (ASan, UBSan, coverage); this links libFuzzer's main.
function(orn_fuzz_target name)
  cmake_parse_arguments(F "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${F_SOURCES})
  orn_target(${name})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(${name} PRIVATE ${F_LIBS})
  add_dependencies(fuzz_targets ${name})
endfunction()
