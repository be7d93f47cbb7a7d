# Libraries of file formats that the client reads where it is built with them.
#
# talven_find_format(NAME MODULE) decides by TALVEN_NAME: AUTO (where pkg-config knows MODULE), ON or
# OFF. The library is PkgConfig::NAME then; without it a file of this kind is refused in words.
find_package(PkgConfig REQUIRED)

macro(talven_find_format NAME MODULE)
  set(TALVEN_${NAME} AUTO CACHE STRING "Read ${NAME} files: AUTO (where ${MODULE} is found), ON, OFF")
  set_property(CACHE TALVEN_${NAME} PROPERTY STRINGS AUTO ON OFF)
  if(TALVEN_${NAME} STREQUAL "AUTO")
    pkg_check_modules(${NAME} QUIET IMPORTED_TARGET GLOBAL ${MODULE})
  elseif(TALVEN_${NAME})
    pkg_check_modules(${NAME} REQUIRED QUIET IMPORTED_TARGET GLOBAL ${MODULE})
  endif()
  if(TARGET PkgConfig::${NAME})
    message(STATUS "${NAME} files: read")
  else()
    message(STATUS "${NAME} files: not read")
  endif()
endmacro()
