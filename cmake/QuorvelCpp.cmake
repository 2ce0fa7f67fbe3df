# The C++ binding: a header, which wants C++17 and threads. It is installed by itself (component cpp), with a
# description of its own for pkg-config and for CMake.

add_library(quorvel-cpp INTERFACE)
add_library(Quorvel::cpp ALIAS quorvel-cpp)
set_target_properties(quorvel-cpp PROPERTIES EXPORT_NAME cpp)
target_compile_features(quorvel-cpp INTERFACE cxx_std_17)
target_link_libraries(quorvel-cpp INTERFACE Quorvel::quorvel Threads::Threads)

install(FILES "${PROJECT_SOURCE_DIR}/include/quorvel/quorvel.hpp" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/quorvel"
        COMPONENT cpp)
install(TARGETS quorvel-cpp EXPORT QuorvelCpp)
install(EXPORT QuorvelCpp NAMESPACE Quorvel:: FILE QuorvelCpp.cmake
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Quorvel" COMPONENT cpp)
configure_file("${PROJECT_SOURCE_DIR}/cmake/quorvel-cpp.pc.in" "${PROJECT_BINARY_DIR}/quorvel-cpp.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/quorvel-cpp.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT cpp)
