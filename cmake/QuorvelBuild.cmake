# Flags and folders that every target of the house shares.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# No program carries the path that it was built in.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

include(GNUInstallDirs)
# An installed program finds the library beside it, wherever the prefix is.
file(RELATIVE_PATH libraries_from_programs "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN/${libraries_from_programs}")
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

add_compile_definitions(_GNU_SOURCE)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 takes an optimised std::string + const char* for overlapping copies, or for copies out of bounds (its bugs
  # 105651 and 105329).
  add_compile_options($<$<AND:$<COMPILE_LANGUAGE:CXX>,$<NOT:$<CONFIG:Debug>>>:-Wno-restrict>)
  if(QUORVEL_SANITIZE)
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-array-bounds>
                        $<$<COMPILE_LANGUAGE:CXX>:-Wno-stringop-overflow>)
  endif()
endif()
if(QUORVEL_STRICT)
  add_compile_options(-Werror)
endif()
if(QUORVEL_SANITIZE)
  add_compile_options(-fsanitize=${QUORVEL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUORVEL_SANITIZE})
endif()
# What is delivered is counted, and the tests are not: said by each folder of the former.
if(QUORVEL_COVERAGE)
  add_link_options(--coverage)
endif()
macro(quorvel_count_coverage)
  if(QUORVEL_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
  endif()
endmacro()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # The locks are checked at compile time; only clang knows the attributes.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety>)
endif()

# quorvel_large_pieces(<target>...): what of the targets' files is the same, large headers' templates above all, is
# compiled once for two dozen of them.
function(quorvel_large_pieces)
  if(QUORVEL_UNITY)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 24)
  endif()
endfunction()

# How the shared libraries of the house are linked: without a run time of their own, complete, and in few segments,
# since every program that starts with them pays for each of those.
set(QUORVEL_LIBRARY_LINK_OPTIONS
  LINKER:-z,now LINKER:-z,relro LINKER:-z,noseparate-code LINKER:--as-needed -static-libgcc)
if(NOT QUORVEL_SANITIZE AND NOT QUORVEL_COVERAGE)
  # What a compiler links around a library serves constructors and destructors, which none of these has, and costs
  # its look-ups at every program's start.
  list(APPEND QUORVEL_LIBRARY_LINK_OPTIONS LINKER:-z,defs -nostartfiles)
endif()

# A dependency that this build can do without: an error when strict, a warning otherwise. The option is the one that
# leaves out what needs it.
function(quorvel_missing what option package)
  set(remedy "script/bootstrap installs it, -D${option}=OFF does without.")
  if(QUORVEL_STRICT)
    message(FATAL_ERROR "${what} needs the Debian package ${package}; ${remedy}")
  endif()
  message(WARNING "${what} is not built: it needs the Debian package ${package}; ${remedy}")
endfunction()
