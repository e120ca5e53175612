# Debian packages of a build: cpack -G DEB in the build folder makes wsmd, wsm-bridge, wsmd-base, wsmd-tools and wsm-collector.
# The components are those of the install() calls. Included last: CPack uses everything defined before.

set(CPACK_PACKAGE_NAME wsmd)
set(CPACK_PACKAGE_VENDOR "The wsmd developers")
set(CPACK_PACKAGE_CONTACT "The wsmd developers <wsmd@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_COMPONENTS_ALL daemon)
set(daemon_depends iptables)
if(WSMD_BASE_BUNDLED)
  list(APPEND CPACK_COMPONENTS_ALL base)
  set(tools_depends "wsmd-base (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
  string(APPEND daemon_depends ", ${tools_depends}")
endif()
if(TARGET wsm-bridge)
  list(APPEND CPACK_COMPONENTS_ALL bridge)
endif()
if(WSMD_LAB)
  list(APPEND CPACK_COMPONENTS_ALL tools collector)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# dpkg-shlibdeps knows json-c and the C library; ours are named here.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
endif()

# wsmd_package(COMPONENT NAME DEPENDS summary description-line...): its scripts are in packaging/debian/COMPONENT.
macro(wsmd_package component name depends)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  string(JOIN "\n" CPACK_DEBIAN_${upper}_DESCRIPTION ${ARGN})
  file(GLOB CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/${component}/*)
endmacro()

wsmd_package(daemon wsmd "${daemon_depends}"
  "${PROJECT_DESCRIPTION}"
  "Keeps one record for every wireless client of an access point, reports"
  "arrivals, departures and figures to a collector, and answers queries on the bus.")
wsmd_package(bridge wsm-bridge "${tools_depends}"
  "Wireless driver of mac80211 radios for wsmd"
  "Reports to wsmd the stations that associate, roam or leave an access point with"
  "hostapd, and answers the daemon's driver requests.")
set(CPACK_DEBIAN_BRIDGE_PACKAGE_RECOMMENDS wsmd)
wsmd_package(base wsmd-base ""
  "Base libraries, bus broker and configuration tools below wsmd"
  "Event loop, messages, bus and configuration packages, with the programs ubusd,"
  "ubus and uci.")
wsmd_package(tools wsmd-tools "${tools_depends}"
  "Driver simulator, lease monitor and recorder of wsmd"
  "apsim plays the wireless driver, dhcpmon the lease service on the bus,"
  "wsm-record writes down what the daemon receives, and wsm-replay plays that"
  "to another daemon.")
wsmd_package(collector wsm-collector ""
  "Collector of station reports of wsmd"
  "Takes the reports of an access point and prints them, keeps them in a"
  "database, serves them as a page, as JSON and for Prometheus, and publishes"
  "them to a broker.")

include(CPack)
