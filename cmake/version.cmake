# The header's version macros must name the project's version: a release that
# bumps one without the other fails to configure.
file(STRINGS ${PROJECT_SOURCE_DIR}/include/velomar.h VELOMAR_VERSION_LINES
  REGEX "^#define VELOMAR_VERSION_(MAJOR|MINOR|PATCH|STRING) ")
set(VELOMAR_HEADER_VERSION "")
foreach(part MAJOR MINOR PATCH)
  string(REGEX MATCH "VELOMAR_VERSION_${part} +([0-9]+)" _ "${VELOMAR_VERSION_LINES}")
  list(APPEND VELOMAR_HEADER_VERSION "${CMAKE_MATCH_1}")
endforeach()
list(JOIN VELOMAR_HEADER_VERSION "." VELOMAR_HEADER_VERSION)
string(REGEX MATCH "VELOMAR_VERSION_STRING +\"([^\"]*)\"" _ "${VELOMAR_VERSION_LINES}")
if(NOT VELOMAR_HEADER_VERSION STREQUAL PROJECT_VERSION OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "include/velomar.h gives version ${VELOMAR_HEADER_VERSION} "
    "(string \"${CMAKE_MATCH_1}\"), CMakeLists.txt ${PROJECT_VERSION}")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/velomar.h)
