# GTest::gtest, GTest::gtest_main, GTest::gmock and GTest::gmock_main: the libraries of the machine that is built for,
# or, where it has none, Debian's source package of them.

find_package(GTest QUIET)
if(TARGET GTest::gmock)
  return()
endif()
set(quorvel_gtest_source "/usr/src/googletest" CACHE PATH "GoogleTest's source, from the Debian package googletest")
if(NOT EXISTS "${quorvel_gtest_source}/CMakeLists.txt")
  quorvel_missing("The test suite" QUORVEL_TESTS "libgmock-dev, or for another machine than this one googletest")
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
