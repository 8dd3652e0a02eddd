# The export table (src/velomar.def) is the one list of exports: the Windows
# build links it as the module-definition file, and VELOMAR_EXPORTS carries its
# names to the checks and tests.
set(VELOMAR_DEF_FILE ${PROJECT_SOURCE_DIR}/src/velomar.def)
file(STRINGS ${VELOMAR_DEF_FILE} VELOMAR_DEF_LINES REGEX "^[ \t]+[A-Za-z_][A-Za-z0-9_]*")
set(VELOMAR_EXPORTS "")
foreach(line ${VELOMAR_DEF_LINES})
  string(STRIP "${line}" name)
  list(APPEND VELOMAR_EXPORTS ${name})
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VELOMAR_DEF_FILE})
