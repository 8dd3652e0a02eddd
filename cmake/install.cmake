# Install rules: the shared library, the header, a CMake package
# (find_package(velomar CONFIG) gives velomar::velomar) and velomar.pc for
# pkg-config. Nothing else is installed: the host program and the tests stay
# in the build tree.
include(CMakePackageConfigHelpers)

set(VELOMAR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/velomar)

install(TARGETS velomar EXPORT velomarTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/include/velomar.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT velomarTargets NAMESPACE velomar:: DESTINATION ${VELOMAR_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/velomarConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velomarConfig.cmake INSTALL_DESTINATION ${VELOMAR_CMAKE_DIR})
# 0.x releases promise compatibility within a minor version only.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velomarConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velomarConfig.cmake ${PROJECT_BINARY_DIR}/velomarConfigVersion.cmake
  DESTINATION ${VELOMAR_CMAKE_DIR} COMPONENT development)

# pkg-config: the prefix is found from the .pc file's own place, so the file
# is right for whatever prefix `cmake --install --prefix` is given.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(VELOMAR_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH VELOMAR_PC_UP /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
  string(REGEX REPLACE "/$" "" VELOMAR_PC_UP "${VELOMAR_PC_UP}")
  set(VELOMAR_PC_PREFIX "\${pcfiledir}/${VELOMAR_PC_UP}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(VELOMAR_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(VELOMAR_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/velomar.pc.in ${PROJECT_BINARY_DIR}/velomar.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velomar.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
