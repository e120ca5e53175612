# Installation. The folders' install() calls only name a destination; the folder's CMAKE_INSTALL_DEFAULT_COMPONENT_NAME
# (base, daemon or tools) decides about the package.

# Below a prefix that the loader does not search, the programs find the libraries relative to themselves.
if(NOT CMAKE_INSTALL_PREFIX MATCHES "^(/usr|/usr/local)?/?$")
  set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

# wsmd_install_library(TARGET DESCRIPTION text [HEADERS file...] [HEADER_DIR folder] [REQUIRES module...]
#   [REQUIRES_PRIVATE module...]): the library, its headers below include/HEADER_DIR, and its pkg-config file.
function(wsmd_install_library target)
  cmake_parse_arguments(A "" "DESCRIPTION;HEADER_DIR" "HEADERS;REQUIRES;REQUIRES_PRIVATE" ${ARGN})
  get_target_property(A_NAME ${target} OUTPUT_NAME)
  list(JOIN A_REQUIRES " " A_REQUIRES)
  list(JOIN A_REQUIRES_PRIVATE " " A_REQUIRES_PRIVATE)
  # The prefix is relative to the file, so that an installed tree can be moved.
  string(REGEX REPLACE "[^/]+" ".." A_PREFIX ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in lib${A_NAME}.pc @ONLY)
  install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${A_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${A_HEADER_DIR})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/lib${A_NAME}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
