# SPDX-License-Identifier: MIT
# What `cpack` makes: Debian packages, one for each component, or one zip of everything for Windows.
set(CPACK_PACKAGE_NAME "${PROJECT_NAME}")
set(CPACK_PACKAGE_VENDOR "The KELHandler developers")
set(CPACK_PACKAGE_CONTACT "The KELHandler developers <kelhandler@example.org>" CACHE STRING
    "Who answers for the packages: name <address>")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Runtime Development Simulator Tools)
set(CPACK_GENERATOR DEB)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  install(FILES packaging/windows/README.txt DESTINATION . COMPONENT Runtime)
endif()

# ---- Debian packages ----

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE kelhandler)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/WithoutMaintainerScripts.cmake")
set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libkelhandler${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "control library for a communications device
Sends tasks to the device and brings back its answers, streams and broadcasts.
It reaches the device through a pipe library, libSluiceHub.so.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${debian}/triggers;${debian}/symbols")

# Whatever provides a libSluiceHub.so takes the place of the stand-in: two of them would be one file.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "sluicehub-simulator | libsluicehub")
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_PROVIDES libsluicehub)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_CONFLICTS libsluicehub)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_REPLACES libsluicehub)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_CONTROL_EXTRA "${debian}/triggers")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkelhandler-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "control library for a communications device (development files)
The header, the client layer for C++, what CMake and pkg-config find the
library by, and the documents.")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME sluicehub-simulator)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION "stand-in pipe library with a device behind it
Lets programs that control the device run where there is none. Its controls
are in SluiceHubSim.h, which libkelhandler-dev has.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kelhandler-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS Runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line client for a communications device
kelctl sends tasks, follows streams and listens to broadcasts.")

if(TARGET kelhandler_native)
  list(APPEND CPACK_COMPONENTS_ALL Python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kelhandler)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), python3 (<< 3.12)")
  set(CPACK_COMPONENT_PYTHON_DEPENDS Runtime)
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "control library for a communications device (Python 3)
Sends tasks to the device and reads its streams and broadcasts, for programs
with and without asyncio. Has a plugin for pytest.")
endif()

if(TARGET keld)
  list(APPEND CPACK_COMPONENTS_ALL Fleet)
  set(CPACK_DEBIAN_FLEET_PACKAGE_NAME kelhandler-fleet)
  set(CPACK_DEBIAN_FLEET_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_FLEET_PACKAGE_SUGGESTS "nats-server, libkelhandler-dev, libnats-dev")
  set(CPACK_COMPONENT_FLEET_DEPENDS Runtime)
  set(CPACK_COMPONENT_FLEET_DESCRIPTION "communications devices on other hosts, over NATS
keld offers the device of its host, and programs reach it from anywhere by a
URI. Has keld, a unit of systemd for each device, a configuration for NATS
servers, and the library that programs are linked with.")
endif()

if(TARGET kelconsole)
  list(APPEND CPACK_COMPONENTS_ALL Console)
  set(CPACK_DEBIAN_CONSOLE_PACKAGE_NAME kelhandler-console)
  set(CPACK_DEBIAN_CONSOLE_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_CONSOLE_PACKAGE_RECOMMENDS kelhandler-tools)
  set(CPACK_COMPONENT_CONSOLE_DEPENDS Runtime)
  set(CPACK_COMPONENT_CONSOLE_DESCRIPTION "communications devices in the browser
kelctl console shows a device, or all of a site: links, tasks, streams as
plots, broadcasts, and what was sent and answered.")
endif()

# What each package has about itself. An install by hand has it in another place.
if(CPACK_GENERATOR STREQUAL DEB)
  set(changelog "${PROJECT_BINARY_DIR}/changelog")
  configure_file(packaging/debian/changelog.in "${changelog}" @ONLY)
  execute_process(COMMAND gzip -9nkf "${changelog}" COMMAND_ERROR_IS_FATAL ANY)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER "${component}" upper)
    install(FILES packaging/copyright "${changelog}.gz" COMPONENT ${component} EXCLUDE_FROM_ALL
      DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  endforeach()
  install(FILES "${debian}/overrides" COMPONENT Simulator EXCLUDE_FROM_ALL RENAME sluicehub-simulator
    DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides")
endif()

include(CPack)
