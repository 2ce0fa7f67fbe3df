# Writes the service's unit for the prefix of this installation.
cmake_path(ABSOLUTE_PATH QUORVEL_SBINDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
configure_file("${QUORVEL_UNIT_TEMPLATE}" "${QUORVEL_UNIT}" @ONLY)
file(INSTALL "${QUORVEL_UNIT}" DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
