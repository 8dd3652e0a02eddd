# The public header is the one list of exports: this reads the names declared
# there (VL_CALL Name), and from them writes the Windows export table.
file(READ ${PROJECT_SOURCE_DIR}/include/velomar.h VELOMAR_HEADER_TEXT)
string(REGEX MATCHALL "VL_CALL[ \t\r\n]+[A-Za-z_][A-Za-z0-9_]*[ \t\r\n]*\\(" VELOMAR_EXPORT_MATCHES
       "${VELOMAR_HEADER_TEXT}")
set(VELOMAR_EXPORTS "")
foreach(match ${VELOMAR_EXPORT_MATCHES})
  string(REGEX REPLACE "VL_CALL[ \t\r\n]+([A-Za-z_][A-Za-z0-9_]*).*" "\\1" name "${match}")
  list(APPEND VELOMAR_EXPORTS ${name})
endforeach()
list(REMOVE_DUPLICATES VELOMAR_EXPORTS)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/velomar.h)

# Every export under its plain name: no stdcall @N decoration on 32-bit Windows.
list(JOIN VELOMAR_EXPORTS "\n    " VELOMAR_DEF_LINES)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/velomar.def CONTENT
"; Export table of the Velomar library, generated from include/velomar.h.
LIBRARY velomar
EXPORTS
    ${VELOMAR_DEF_LINES}
")
