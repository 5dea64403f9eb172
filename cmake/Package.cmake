# Installation, and the packages through which other projects find the library.

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/http_interface)

set(installed http_interface)
if(NOT HTTP_INTERFACE_BASE_TARGET)
  list(APPEND installed base)
  install(DIRECTORY base/include/base DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  set(package_needs_base "")
  set(package_base_library " -lbase")
else()
  set(package_needs_base ${HTTP_INTERFACE_BASE_TARGET})
  set(package_base_library "")
endif()
install(TARGETS ${installed} EXPORT http_interface-targets)
install(DIRECTORY include/http_interface DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT http_interface-targets NAMESPACE http_interface:: DESTINATION ${package_dir})
install(DIRECTORY ${deps_prefix}/licenses/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/http_interface/third-party)

configure_package_config_file(cmake/http_interface-config.cmake.in
  ${PROJECT_BINARY_DIR}/http_interface-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/http_interface-config-version.cmake
  COMPATIBILITY SameMajorVersion)
file(RELATIVE_PATH package_up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/http_interface.pc.in ${PROJECT_BINARY_DIR}/http_interface.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/http_interface-config.cmake
              ${PROJECT_BINARY_DIR}/http_interface-config-version.cmake
        DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/http_interface.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
