if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(emulated "QUORVEL_EMULATED=1")
endif()
# How a test process is started: with what the sanitizers shall do, and in its own namespaces.
set(QUORVEL_TEST_LAUNCHER
  env
  "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1"
  "UBSAN_OPTIONS=print_stacktrace=1"
  "TSAN_OPTIONS=second_deadlock_stack=1"
  ${emulated}
  "$<TARGET_FILE:quorvel-isolate>" --keep "${PROJECT_SOURCE_DIR}" --keep "${PROJECT_BINARY_DIR}" --)

# quorvel_test(<name> SOURCES <source>... [LIBRARIES <target>...] [LABELS <label>...] [TIMEOUT <seconds>] [PLAIN]
#   [LARGE_PIECES])
#
# Builds a GoogleTest program from the sources, linked with the library and the test support, and registers each
# of its cases as a test of its own. A suite whose name ends in "Slow" is labelled `slow` and has three minutes.
# PLAIN leaves out what stands in for the platform's functions and for those of the C library. LARGE_PIECES: no two of
# the sources have a name of their own in common, so that they may be compiled together.
function(quorvel_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "PLAIN;LARGE_PIECES" "TIMEOUT" "SOURCES;LIBRARIES;LABELS")
  if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
    message(FATAL_ERROR "quorvel_test(${name}): sources are missing, or unknown: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()

  add_executable(${name} ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES
    ENABLE_EXPORTS ON
    POSITION_INDEPENDENT_CODE OFF # as the precompiled header is built; the compiler's default makes it a PIE
    CROSSCOMPILING_EMULATOR "${QUORVEL_TEST_LAUNCHER};${CMAKE_CROSSCOMPILING_EMULATOR}")
  target_link_libraries(${name} PRIVATE quorvel_test_support ${arg_LIBRARIES})
  if(NOT arg_PLAIN)
    target_link_libraries(${name} PRIVATE quorvel_test_standins quorvel_test_library_calls)
  endif()
  target_precompile_headers(${name} REUSE_FROM quorvel_test_support)
  add_dependencies(${name} quorvel-isolate)
  if(arg_LARGE_PIECES)
    quorvel_large_pieces(${name})
    # Smaller ones: the files of a test name small things alike.
    set_target_properties(${name} PROPERTIES UNITY_BUILD_BATCH_SIZE 12)
  endif()

  _quorvel_discover(${name} "*:-*Slow.*" ${arg_TIMEOUT} "${arg_LABELS}")
  list(APPEND arg_LABELS slow)
  _quorvel_discover(${name} "*Slow.*" 180 "${arg_LABELS}")
endfunction()

function(_quorvel_discover name filter timeout labels)
  string(MAKE_C_IDENTIFIER "${name}_${filter}_tests" list)
  gtest_discover_tests(${name}
    TEST_LIST ${list}
    TEST_PREFIX "${name}/"
    TEST_FILTER "${filter}"
    NO_PRETTY_VALUES
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${timeout})
  if(NOT labels)
    return()
  endif()
  # gtest_discover_tests takes no property whose value is a list.
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${list}_labels.cmake")
  file(WRITE "${script}" "
foreach(test IN LISTS ${list})
  set_tests_properties(\"\${test}\" PROPERTIES LABELS \"${labels}\")
endforeach()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
endfunction()
