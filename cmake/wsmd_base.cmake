# The base libraries under one set of names, wherever they come from:
#   base::ubox  base::blobmsg_json  base::ubus  base::uci  base::json_c
# WSMD_BASE=system uses the installed ones, bundled builds base/, auto uses the system's if all are there.

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSON_C REQUIRED IMPORTED_TARGET json-c)
add_library(base::json_c ALIAS PkgConfig::JSON_C)

set(WSMD_BASE_BUNDLED TRUE)
if(NOT WSMD_BASE STREQUAL bundled)
  find_path(UBOX_INCLUDE libubox/uloop.h)
  find_path(UBUS_INCLUDE libubus.h)
  find_path(UCI_INCLUDE uci.h)
  find_library(UBOX_LIBRARY ubox)
  find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
  find_library(UBUS_LIBRARY ubus)
  find_library(UCI_LIBRARY uci)
  if(UBOX_INCLUDE AND UBUS_INCLUDE AND UCI_INCLUDE AND UBOX_LIBRARY AND BLOBMSG_JSON_LIBRARY
     AND UBUS_LIBRARY AND UCI_LIBRARY)
    set(WSMD_BASE_BUNDLED FALSE)
    foreach(lib ubox blobmsg_json ubus uci)
      string(TOUPPER ${lib} upper)
      add_library(wsmd_system_${lib} INTERFACE)
      target_include_directories(wsmd_system_${lib} SYSTEM INTERFACE ${UBOX_INCLUDE} ${UBUS_INCLUDE} ${UCI_INCLUDE})
      target_link_libraries(wsmd_system_${lib} INTERFACE ${${upper}_LIBRARY})
      add_library(base::${lib} ALIAS wsmd_system_${lib})
    endforeach()
  elseif(WSMD_BASE STREQUAL system)
    message(FATAL_ERROR "WSMD_BASE=system, but libubox, libblobmsg_json, libubus and libuci are not all installed")
  endif()
endif()

if(WSMD_BASE_BUNDLED)
  message(STATUS "Base libraries: bundled (base/)")
else()
  message(STATUS "Base libraries: of the system")
endif()
