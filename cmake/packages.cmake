# What is installed, in Debian packages: the plug-in for a device, the door daemon as a service, its page, its bridge to a
# fleet, the command line of the fleet, the tools, and the kit for those who write a host. scripts/package makes them.
set(documentation usr/share/doc)
set(plugin_package uhf-plugin)
set(host_package achost)
set(web_package achost-web)
set(mqtt_package achost-mqtt)
set(fleet_package achost-fleet)
set(tools_package uhf-tools)
set(kit_package uhf-dev)

if(NOT UHF_SANITIZER STREQUAL "")
  return()
endif()
find_program(GZIP gzip REQUIRED)
# The format asks for the changelog compressed, with the time of the file left out.
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_BINARY_DIR}/changelog
  COMMAND ${GZIP} -9 -n -f ${CMAKE_BINARY_DIR}/changelog
  DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md VERBATIM)
add_custom_target(changelog ALL DEPENDS ${CMAKE_BINARY_DIR}/changelog.gz)

function(install_documentation package)
  install(FILES ${CMAKE_BINARY_DIR}/changelog.gz packaging/copyright DESTINATION ${documentation}/${package} COMPONENT ${package})
endfunction()

install(TARGETS uhf LIBRARY DESTINATION usr/lib/uhf COMPONENT ${plugin_package})
install_documentation(${plugin_package})
set(components ${plugin_package})

if(UHF_BUILD_TOOLS)
  install(TARGETS uhfctl uhf-sim RUNTIME DESTINATION usr/bin COMPONENT ${tools_package})
  install(TARGETS hostcheck LIBRARY DESTINATION usr/lib/uhf COMPONENT ${tools_package})
  describe_program(uhfctl 1 ${tools_package})
  describe_program(uhf-sim 1 ${tools_package})
  install_documentation(${tools_package})
  list(APPEND components ${tools_package})
endif()

if(UHF_BUILD_TOOLS)  # the kit lives on the simulated reader and hostcheck.so
  include(${CMAKE_CURRENT_LIST_DIR}/kit.cmake)
  install_documentation(${kit_package})
  list(APPEND components ${kit_package})
endif()

if(UHF_BUILD_HOST)
  install(TARGETS achost RUNTIME DESTINATION usr/bin COMPONENT ${host_package})
  install(TARGETS ac LIBRARY DESTINATION usr/lib/achost COMPONENT ${host_package})
  install(FILES packaging/achost.service DESTINATION usr/lib/systemd/system COMPONENT ${host_package})
  install(FILES packaging/60-achost-gpio.rules packaging/60-uhf-reader.rules DESTINATION usr/lib/udev/rules.d COMPONENT ${host_package})
  install(FILES packaging/achost.default DESTINATION etc/default RENAME achost COMPONENT ${host_package})
  install(FILES door/control/control.schema.json DESTINATION usr/share/achost COMPONENT ${host_package})
  describe_program(achost 8 ${host_package})
  if(UHF_BUILD_TOOLS)  # it lives on the host's library
    install(TARGETS plugincheck RUNTIME DESTINATION usr/bin COMPONENT ${host_package})
    describe_program(plugincheck 1 ${host_package})
  endif()
  install_documentation(${host_package})
  list(APPEND components ${host_package})
endif()

if(UHF_BUILD_WEB)
  install(TARGETS achost-web RUNTIME DESTINATION usr/bin COMPONENT ${web_package})
  install(FILES packaging/achost-web.service DESTINATION usr/lib/systemd/system COMPONENT ${web_package})
  install(FILES packaging/achost-web.default DESTINATION etc/default RENAME achost-web COMPONENT ${web_package})
  install(FILES packaging/monitoring/alerts.yml packaging/monitoring/dashboard.json
          DESTINATION ${documentation}/${web_package}/examples COMPONENT ${web_package})
  describe_program(achost-web 1 ${web_package})
  install_documentation(${web_package})
  list(APPEND components ${web_package})
endif()

if(UHF_BUILD_MQTT)
  install(TARGETS achost-mqtt RUNTIME DESTINATION usr/bin COMPONENT ${mqtt_package})
  install(FILES packaging/achost-mqtt.service DESTINATION usr/lib/systemd/system COMPONENT ${mqtt_package})
  install(FILES packaging/achost-mqtt.conf DESTINATION etc COMPONENT ${mqtt_package})
  describe_program(achost-mqtt 1 ${mqtt_package})
  install_documentation(${mqtt_package})
  list(APPEND components ${mqtt_package})
endif()

if(UHF_BUILD_FLEET)
  install(TARGETS achost-fleet RUNTIME DESTINATION usr/bin COMPONENT ${fleet_package})
  install(FILES packaging/fleet/fleet.acl packaging/fleet/provision.acl packaging/fleet/mosquitto.conf gateway/mqtt/fleet.schema.json
          DESTINATION usr/share/achost-fleet COMPONENT ${fleet_package})
  install(PROGRAMS packaging/fleet/certificates DESTINATION usr/share/achost-fleet COMPONENT ${fleet_package})
  describe_program(achost-fleet 1 ${fleet_package})
  install_documentation(${fleet_package})
  list(APPEND components ${fleet_package})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME uhf)
set(CPACK_PACKAGE_CONTACT "uhf developers <uhf@example.org>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/achost)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  # dpkg-shlibdeps has no database of the other architecture's libraries.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.5)")
  set(host_libraries ", libfmt9 (>= 9.1), libjemalloc2 (>= 5.3), libspdlog1.10-fmt9, libsqlite3-0 (>= 3.40), ${CPACK_DEBIAN_PACKAGE_DEPENDS}")
endif()

set(CPACK_DEBIAN_UHF-PLUGIN_PACKAGE_NAME ${plugin_package})
set(CPACK_COMPONENT_UHF-PLUGIN_DESCRIPTION "UHF RFID reader plug-in for access-control hosts\n\
 Polls a UHF reader module on a serial line and announces cards to the host\n that loads it. The plug-in alone, without a host.")
set(CPACK_DEBIAN_UHF-TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_COMPONENT_UHF-TOOLS_DESCRIPTION "tools to commission UHF RFID readers\n\
 uhfctl looks at a reader, sets it up and surveys its power; uhf-sim is a\n simulated reader on a pseudo-terminal; hostcheck.so is loaded in place of the\n plug-in and examines the host.")
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_NAME ${kit_package})
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_DEPENDS "uhf-plugin (= ${PROJECT_VERSION}), uhf-tools (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_UHF-DEV_PACKAGE_SUGGESTS "achost, g++, cmake, make, pkg-config")
set(CPACK_COMPONENT_UHF-DEV_DESCRIPTION "kit to write hosts for the UHF RFID reader plug-in\n\
 The interface as headers, with files for CMake and pkg-config, the smallest whole\n host as an example, and the contract, which hostcheck.so examines.")
set(CPACK_DEBIAN_ACHOST_PACKAGE_NAME ${host_package})
set(CPACK_DEBIAN_ACHOST_PACKAGE_DEPENDS "uhf-plugin (= ${PROJECT_VERSION}), adduser${host_libraries}")
set(CPACK_DEBIAN_ACHOST_PACKAGE_SUGGESTS "uhf-tools")
set(CPACK_COMPONENT_ACHOST_DESCRIPTION "small access-control host with a UHF RFID reader\n\
 Doors, users and their cards, settings and an audit log, as a confined systemd\n service with a user of its own.")
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_ACHOST_PACKAGE_CONTROL_EXTRA ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)
set(CPACK_DEBIAN_ACHOST-WEB_PACKAGE_NAME ${web_package})
set(CPACK_DEBIAN_ACHOST-WEB_PACKAGE_DEPENDS "achost (= ${PROJECT_VERSION}), adduser")
set(CPACK_COMPONENT_ACHOST-WEB_DESCRIPTION "page and figures of an access-control host\n\
 How the door stands and what happens at it for browsers, and figures for\n Prometheus, from a confined process of its own. It is not started by itself.")
set(debian_web ${PROJECT_SOURCE_DIR}/packaging/debian-web)
set(CPACK_DEBIAN_ACHOST-WEB_PACKAGE_CONTROL_EXTRA
  ${debian_web}/conffiles ${debian_web}/postinst ${debian_web}/prerm ${debian_web}/postrm)
set(CPACK_DEBIAN_ACHOST-MQTT_PACKAGE_NAME ${mqtt_package})
set(CPACK_DEBIAN_ACHOST-MQTT_PACKAGE_DEPENDS "achost (= ${PROJECT_VERSION}), adduser")
set(CPACK_COMPONENT_ACHOST-MQTT_DESCRIPTION "bridge of an access-control host to an MQTT broker\n\
 Tells a broker what happens at the door, does what is asked there, and makes the\n door what a centre wants of it. It is not started by itself.")
set(debian_mqtt ${PROJECT_SOURCE_DIR}/packaging/debian-mqtt)
set(CPACK_DEBIAN_ACHOST-MQTT_PACKAGE_CONTROL_EXTRA
  ${debian_mqtt}/conffiles ${debian_mqtt}/postinst ${debian_mqtt}/prerm ${debian_mqtt}/postrm)
set(CPACK_DEBIAN_ACHOST-FLEET_PACKAGE_NAME ${fleet_package})
set(CPACK_DEBIAN_ACHOST-FLEET_PACKAGE_DEPENDS "openssl")
set(CPACK_DEBIAN_ACHOST-FLEET_PACKAGE_SUGGESTS "mosquitto")
set(CPACK_COMPONENT_ACHOST-FLEET_DESCRIPTION "command line for many doors on an MQTT broker\n\
 How all doors are, what happens at them, who may come in and with which\n settings, and how new ones join; with rules for the broker.")
include(CPack)
