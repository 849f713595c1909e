# Installs the library, its public headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS velmor_authorization
  EXPORT VelmorAuthorizationTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The public headers, by name: a header left out of this list is not API.
install(FILES
  include/velmor/ApplicationInfo.h
  include/velmor/Base64.h
  include/velmor/BlockOperation.h
  include/velmor/BrowserLauncher.h
  include/velmor/CurlHttpClient.h
  include/velmor/Data.h
  include/velmor/DebugNotice.h
  include/velmor/EnvironmentInfo.h
  include/velmor/Error.h
  include/velmor/Exception.h
  include/velmor/Export.h
  include/velmor/FileSecretStore.h
  include/velmor/HttpClient.h
  include/velmor/HttpUrlResponse.h
  include/velmor/Localization.h
  include/velmor/LoopbackRedirectListener.h
  include/velmor/MemorySecretStore.h
  include/velmor/Operation.h
  include/velmor/OperationQueue.h
  include/velmor/SecretServiceStore.h
  include/velmor/SecretStore.h
  include/velmor/ServerErrorResponse.h
  include/velmor/Url.h
  include/velmor/Value.h
  include/velmor/VelmorAuthorizationClient.h
  include/velmor/VelmorAuthorizationError.h
  include/velmor/VelmorAuthorizationLibraryVersion.h
  include/velmor/VelmorAuthorizationLogger.h
  include/velmor/VelmorSimpleSecureStore.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velmor)

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
if(VELMOR_WITH_SECRET_SERVICE)
  set(VELMOR_PC_GIO " gio-2.0")
else()
  set(VELMOR_PC_GIO "")
endif()
configure_file(cmake/velmor-authorization.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/velmor-authorization.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velmor-authorization.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
