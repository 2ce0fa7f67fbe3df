# What an installed Quorvel consists of beside its programs and libraries: headers, and the descriptions by which
# pkg-config and CMake find them.
include(CMakePackageConfigHelpers)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/quorvel" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT dev FILES_MATCHING PATTERN "*.h")

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(quorvel_pc_prefix "/usr")  # pkg-config leaves out the folders that the compiler knows, if it recognises them
else()
  # The prefix is found from the file's own place, so that `cmake --install --prefix` needs no second configuration.
  file(RELATIVE_PATH quorvel_pc_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
  string(REGEX REPLACE "/$" "" quorvel_pc_to_prefix "${quorvel_pc_to_prefix}")
  set(quorvel_pc_prefix "\${pcfiledir}/${quorvel_pc_to_prefix}")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/quorvel.pc.in" "${PROJECT_BINARY_DIR}/quorvel.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/quorvel.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Quorvel")
install(EXPORT Quorvel NAMESPACE Quorvel:: DESTINATION "${package_dir}" COMPONENT dev)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/QuorvelConfig.cmake.in" "${PROJECT_BINARY_DIR}/QuorvelConfig.cmake"
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/QuorvelConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/QuorvelConfig.cmake" "${PROJECT_BINARY_DIR}/QuorvelConfigVersion.cmake"
        DESTINATION "${package_dir}" COMPONENT dev)
