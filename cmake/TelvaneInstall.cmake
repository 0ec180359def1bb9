# Installs the library, its headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS Telvane EXPORT TelvaneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS MillimetreConversion EXPORT TelvaneTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/Telvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Telvane)
install(EXPORT TelvaneTargets NAMESPACE Telvane:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TelvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TelvaneConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TelvaneConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TelvaneConfig.cmake ${PROJECT_BINARY_DIR}/TelvaneConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# Paths relative to this file, so that `cmake --install --prefix` and a moved prefix work.
file(RELATIVE_PATH up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" telvane_pc_prefix "\${pcfiledir}/${up}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/telvane.pc.in ${PROJECT_BINARY_DIR}/telvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/telvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
