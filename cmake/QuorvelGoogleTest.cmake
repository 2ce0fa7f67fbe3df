# GTest::gtest, GTest::gtest_main, GTest::gmock and GTest::gmock_main: Debian's libraries where they fit, and
# built from Debian's source package where they do not (there are no 32-bit ones for a 64-bit machine).

if(NOT QUORVEL_ILP32)
  find_package(GTest QUIET)
  if(NOT GTest_FOUND OR NOT TARGET GTest::gmock)
    quorvel_missing("tests" "libgmock-dev")
  endif()
  return()
endif()

set(quorvel_gtest_source "/usr/src/googletest" CACHE PATH "GoogleTest's source, from the Debian package googletest")
if(NOT EXISTS "${quorvel_gtest_source}/CMakeLists.txt")
  quorvel_missing("tests as 32-bit code" "googletest")
  return()
endif()

set(INSTALL_GTEST OFF CACHE INTERNAL "")
add_subdirectory("${quorvel_gtest_source}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
foreach(library IN ITEMS gtest gtest_main gmock gmock_main)
  # Our warnings are for our code.
  target_compile_options(${library} PRIVATE -w)
  if(NOT TARGET GTest::${library})
    add_library(GTest::${library} ALIAS ${library})
  endif()
endforeach()
