# Debian packages: the library, the files for building against it, the Python package, the tool with its units, and one for
# each further program that is built.
# scripts/package configures the build with Debian's paths.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME telvane)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_VENDOR "The Telvane developers")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The Telvane developers <maintainers@telvane.invalid>")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/compress.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools python)
if(TELVANE_BUILD_ARCHIVE)
  list(APPEND CPACK_COMPONENTS_ALL archive)
endif()
if(TARGET telvane-web)
  list(APPEND CPACK_COMPONENTS_ALL web)
endif()
if(TELVANE_BUILD_MQTT)
  list(APPEND CPACK_COMPONENTS_ALL mqtt)
endif()

# Dependencies are found in the binaries, except those between these packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  foreach(directory lib usr/lib)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_SYSROOT}/${directory}/${CMAKE_LIBRARY_ARCHITECTURE})
  endforeach()
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(package_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtelvane${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "message bus and records for arc-welding equipment
Processes of one machine publish typed records on named channels and receive
what they have subscribed to, over a Unix-domain socket.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtelvane-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${package_version}), libcjson-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "message bus and records for arc-welding equipment (development)
Headers, the CMake package, the pkg-config file and examples for programs that
use libTelvane.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME telvane-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${package_version}), adduser")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "gnuplot-nox | gnuplot") # for telvane plot
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line tool and server of the Telvane message bus
The tool telvane serves a bus, listens, publishes, asks, records, replays and
draws.
With it come units for systemd, which serve a bus for good once they are
enabled, manual pages, and completion for bash and zsh.")
foreach(script postinst prerm postrm)
  list(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/${script})
endforeach()

# serviceScripts(<component> <unit> <commands>): the scripts of a package with one unit. The commands are the end of its
# postrm.
function(serviceScripts component unit commands)
  set(scripts "")
  foreach(script postinst prerm postrm)
    set(file ${PROJECT_BINARY_DIR}/debian/${unit}/${script})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/service/${script}.in ${file} @ONLY)
    list(APPEND scripts ${file})
  endforeach()
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${scripts} PARENT_SCOPE)
endfunction()

set(CPACK_DEBIAN_ARCHIVE_PACKAGE_NAME telvane-archive)
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_DEPENDS "telvane-tools (= ${package_version}), adduser")
serviceScripts(ARCHIVE telvane-archive.service "") # even purge keeps the archive: welds cannot be made again
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_RECOMMENDS "gnuplot-nox | gnuplot") # for telvane welds plot
set(CPACK_COMPONENT_ARCHIVE_DESCRIPTION "archive of welds on the Telvane message bus
The program telvane-archive keeps every weld of a bus in SQLite or PostgreSQL,
with all its samples. The program telvane-welds lists, shows, compares and
exports them.
With them comes a unit for systemd, which keeps the welds once it is enabled.")

set(CPACK_DEBIAN_MQTT_PACKAGE_NAME telvane-mqtt)
set(CPACK_DEBIAN_MQTT_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_MQTT_PACKAGE_DEPENDS "telvane-tools (= ${package_version}), adduser")
serviceScripts(MQTT telvane-mqtt.service "# The spool; systemd keeps it in private, because the unit's user exists only while it runs.
if [ \"\$1\" = purge ]; then
    rm -rf /var/lib/private/telvane-mqtt /var/lib/telvane-mqtt
fi")
set(CPACK_DEBIAN_MQTT_PACKAGE_SUGGESTS "mosquitto, ca-certificates")
set(CPACK_COMPONENT_MQTT_DESCRIPTION "bridge of the Telvane message bus to an MQTT broker
The program telvane-mqtt sends chosen channels of a bus to a broker, accepts
chosen records and requests from it, and keeps what happens during an outage.
With it comes a unit for systemd, which runs it once it is configured and
enabled.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-telvane)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
  "telvane-tools, python3-pytest, python3-pandas, python3-matplotlib, python3-zstandard, python3-psycopg2")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/python/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/python/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "message bus and records for arc-welding equipment (Python 3)
Typed records, a blocking and an asyncio bus that reconnect, fixtures for
pytest, and recordings as pandas frames.")

set(CPACK_DEBIAN_WEB_PACKAGE_NAME telvane-web)
set(CPACK_DEBIAN_WEB_PACKAGE_SECTION web)
set(CPACK_DEBIAN_WEB_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${package_version}), adduser")
set(CPACK_DEBIAN_WEB_PACKAGE_RECOMMENDS telvane-tools)
set(CPACK_DEBIAN_WEB_PACKAGE_SUGGESTS "telvane-archive (= ${package_version})") # with the module for PostgreSQL
serviceScripts(WEB telvane-web.service "")
set(CPACK_COMPONENT_WEB_DESCRIPTION "page with welds and the bus of arc-welding equipment
Serves a page from the module itself: the weld in progress, the channels,
clients and errors of the Telvane message bus, and metrics for Prometheus.
With it comes a unit for systemd, which serves the page once it is enabled.")

# Each package contains a changelog and a copyright file.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright DESTINATION ${documents} COMPONENT ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/changelog RENAME changelog.Debian
    DESTINATION ${documents} COMPONENT ${component})
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/debian/${package}.lintian-overrides)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/${package}.lintian-overrides RENAME ${package}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
endforeach()
file(GLOB examples LIST_DIRECTORIES false CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libtelvane-dev/examples COMPONENT development)

# The Python package where Debian's Python looks for it, with what makes pytest find its plugin.
set(python_directory lib/python3/dist-packages)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/telvane DESTINATION ${python_directory} COMPONENT python
  FILES_MATCHING PATTERN "*.py" PATTERN py.typed PATTERN __pycache__ EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/python/pytest_telvane.py DESTINATION ${python_directory} COMPONENT python)
foreach(file METADATA entry_points.txt)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/python/${file}.in ${PROJECT_BINARY_DIR}/python/${file} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/python/${file} COMPONENT python
    DESTINATION ${python_directory}/telvane-${PROJECT_VERSION}.dist-info)
endforeach()
file(GLOB examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/python/*.py)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/python3-telvane/examples COMPONENT python)

include(CPack)
