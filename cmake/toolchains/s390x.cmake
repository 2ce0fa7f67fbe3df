# A 64-bit machine that stores the high byte first. LLD 14 does not know it, so the linker is that of binutils.
set(QUORVEL_TRIPLET s390x-linux-gnu)
set(QUORVEL_QEMU qemu-s390x-static)
set(CMAKE_SYSTEM_PROCESSOR s390x)
include("${CMAKE_CURRENT_LIST_DIR}/debian-clang.cmake")
