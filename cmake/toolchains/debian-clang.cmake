# Cross-compiling on Debian with clang and the libraries of a "-cross" package: what the toolchain files of this folder
# share. Each of them sets QUORVEL_TRIPLET (Debian's name of the machine) and QUORVEL_QEMU (its emulator).

set(CMAKE_SYSTEM_NAME Linux)
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_COMPILER_TARGET ${QUORVEL_TRIPLET})
endforeach()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)

# Programs are those of the machine that builds, headers of the one that is built for. Packages may be of either, for
# some are headers alone; libraries, where CMAKE_LIBRARY_PATH says.
set(CMAKE_FIND_ROOT_PATH /usr/${QUORVEL_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Libraries of a foreign architecture (dpkg --add-architecture) are found where they are, this machine's are not.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${QUORVEL_TRIPLET}/pkgconfig:/usr/share/pkgconfig")

find_program(QUORVEL_EMULATOR ${QUORVEL_QEMU})
if(QUORVEL_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${QUORVEL_EMULATOR};-L;/usr/${QUORVEL_TRIPLET}")
endif()
