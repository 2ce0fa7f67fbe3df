# 64-bit ARM.
set(QUORVEL_TRIPLET aarch64-linux-gnu)
set(QUORVEL_QEMU qemu-aarch64-static)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()
include("${CMAKE_CURRENT_LIST_DIR}/debian-clang.cmake")
