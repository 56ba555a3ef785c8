# corvane_add_gtest(<target> LABELS <subsystem> [more labels...] SOURCES ... [LIBS ...] [SERIAL] [TIMEOUT s])
#
# One GoogleTest executable whose cases are registered individually with CTest. The first
# label names the subsystem folder, so `ctest -L playback` runs one subsystem's tests.
# SERIAL marks tests that must not run beside others (they start audio servers or measure
# whole files); TIMEOUT raises CTest's per-case limit.
include(GoogleTest)

set(CORVANE_TEST_OUTPUT_DIR ${CMAKE_BINARY_DIR}/test-output CACHE PATH "Where tests leave artifacts (screenshots, logs)")

function(corvane_add_gtest target)
  cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "LABELS;SOURCES;LIBS" ${ARGN})
  if(NOT ARG_LABELS)
    message(FATAL_ERROR "corvane_add_gtest(${target}): LABELS must name the subsystem folder")
  endif()
  add_executable(${target} ${ARG_SOURCES})
  corvane_target_defaults(${target})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${target} PRIVATE
    CORVANE_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    CORVANE_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/data"
    CORVANE_TEST_OUTPUT_DIR="${CORVANE_TEST_OUTPUT_DIR}")
  if(CORVANE_FUZZ)
    # The fuzz build runs only its fuzzers: unit tests stay targets (so their folders still
    # configure) but are neither built by default nor registered.
    set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    return()
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set(props TIMEOUT ${ARG_TIMEOUT}
            ENVIRONMENT "CORVANE_TEST_OUTPUT_DIR=${CORVANE_TEST_OUTPUT_DIR}")
  if(ARG_SERIAL)
    list(APPEND props RUN_SERIAL TRUE)
  endif()
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST PROPERTIES ${props})
  # Labels are set after discovery, from the list of test names it leaves in <target>_TESTS:
  # passed through gtest_discover_tests' PROPERTIES, a second label ("core;tsan") lost its
  # separator and became a property name of its own.
  set(label_file "${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake")
  file(WRITE "${label_file}"
       "if(${target}_TESTS)\n  set_tests_properties(\${${target}_TESTS} PROPERTIES LABELS \"${ARG_LABELS}\")\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${label_file}")
endfunction()

# corvane_add_fuzzer(<target> LABELS <subsystem> fuzz SOURCES ... [LIBS ...] CORPUS <dir> [SECONDS s])
#
# A libFuzzer target, built only with CORVANE_FUZZ (clang). It is registered as one CTest test
# that runs for SECONDS (60 by default) from the committed corpus in CORPUS, which it only
# reads: new inputs go to a working corpus in the build tree, crashes to its artifacts folder.
# Leaks are not checked: the decoding libraries keep process-wide caches that LeakSanitizer
# would report.
function(corvane_add_fuzzer target)
  cmake_parse_arguments(ARG "" "CORPUS;SECONDS" "LABELS;SOURCES;LIBS" ${ARGN})
  if(NOT CORVANE_FUZZ)
    return()
  endif()
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 60)
  endif()
  add_executable(${target} ${ARG_SOURCES})
  corvane_target_defaults(${target})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  set(work ${CMAKE_CURRENT_BINARY_DIR}/${target}-work)
  file(MAKE_DIRECTORY ${work}/corpus ${work}/artifacts)
  add_test(NAME ${target}
           COMMAND ${target} -max_total_time=${ARG_SECONDS} -detect_leaks=0 -timeout=30 -rss_limit_mb=3072
                   -print_final_stats=1 -artifact_prefix=${work}/artifacts/ ${work}/corpus ${ARG_CORPUS})
  math(EXPR timeout "${ARG_SECONDS} + 120")
  # -detect_leaks=0 stops libFuzzer's per-input check; LeakSanitizer's report at exit needs
  # its own switch.
  set_tests_properties(${target} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${timeout}
                       ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0")
endfunction()
