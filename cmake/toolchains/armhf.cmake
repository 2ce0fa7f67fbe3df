# 32-bit ARM with hard floats, as Debian builds for it: ARMv7, VFPv3.
set(QUORVEL_TRIPLET arm-linux-gnueabihf)
set(QUORVEL_QEMU qemu-arm-static)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
include("${CMAKE_CURRENT_LIST_DIR}/debian-clang.cmake")
