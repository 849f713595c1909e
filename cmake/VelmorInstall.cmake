# Installs the library, its public headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS velmor_authorization
  EXPORT VelmorAuthorizationTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/velmor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

install(EXPORT VelmorAuthorizationTargets
  NAMESPACE velmor::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorAuthorization)
configure_package_config_file(cmake/VelmorAuthorizationConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VelmorAuthorizationConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorAuthorization)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/VelmorAuthorizationConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/VelmorAuthorizationConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/VelmorAuthorizationConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorAuthorization)

# A static library needs its dependencies on the consumer's link line.
if(BUILD_SHARED_LIBS)
  set(VELMOR_PC_REQUIRES "Requires.private")
else()
  set(VELMOR_PC_REQUIRES "Requires")
endif()
if(VELMOR_WITH_LIBSECRET)
  set(VELMOR_PC_LIBSECRET " libsecret-1")
else()
  set(VELMOR_PC_LIBSECRET "")
endif()
configure_file(cmake/velmor-authorization.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/velmor-authorization.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velmor-authorization.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
