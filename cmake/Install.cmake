# SPDX-License-Identifier: MIT
# What `cmake --install` puts under a prefix, in four components: Runtime (the library), Development (what a client is
# built with), Simulator (the stand-in pipe library and its controls) and Tools. Files of one folder only have their
# install() beside them. The stand-in goes along, so that an installed library runs as it is.
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/KELHandler")

install(TARGETS KELHandler KELHandler_client EXPORT KELHandlerTargets
  RUNTIME COMPONENT Runtime
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE COMPONENT Development
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY include/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT Development
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(TARGETS SluiceHub EXPORT SluiceHubTargets
  RUNTIME COMPONENT Simulator
  LIBRARY COMPONENT Simulator
  ARCHIVE COMPONENT Simulator
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(FILES simulator/include/SluiceHubSim.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT Development)
install(TARGETS kelctl RUNTIME COMPONENT Tools)

# ---- For find_package() ----

write_basic_package_version_file("${PROJECT_BINARY_DIR}/KELHandlerConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES cmake/KELHandlerConfig.cmake "${PROJECT_BINARY_DIR}/KELHandlerConfigVersion.cmake"
  DESTINATION "${package_folder}" COMPONENT Development)
install(EXPORT KELHandlerTargets NAMESPACE KELHandler:: DESTINATION "${package_folder}" COMPONENT Development)
install(EXPORT SluiceHubTargets NAMESPACE KELHandler:: DESTINATION "${package_folder}" COMPONENT Simulator)

# ---- For pkg-config ----

# The way from the file's own folder to the prefix, so that the tree may be moved.
file(RELATIVE_PATH to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
configure_file(cmake/kelhandler.pc.in "${PROJECT_BINARY_DIR}/kelhandler.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kelhandler.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

# ---- To read ----

set(documents "${CMAKE_INSTALL_DATAROOTDIR}/doc/kelhandler")
install(FILES README.md CHANGELOG.md LICENSE packaging/copyright DESTINATION "${documents}" COMPONENT Development)
install(DIRECTORY docs DESTINATION "${documents}" COMPONENT Development FILES_MATCHING PATTERN "*.md"
  PATTERN "*.svg" PATTERN "*.png" PATTERN tools EXCLUDE)
install(DIRECTORY examples DESTINATION "${documents}" COMPONENT Development)
install(DIRECTORY python/examples DESTINATION "${documents}/python" COMPONENT Development)
install(CODE "set(documents \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${documents}\")" COMPONENT Development)
install(SCRIPT cmake/InstalledPages.cmake COMPONENT Development)

# All that has to be built before an install, and what goes along as a source only.
get_property(clients DIRECTORY "${PROJECT_SOURCE_DIR}/examples" PROPERTY BUILDSYSTEM_TARGETS)
add_custom_target(examples DEPENDS ${clients})
add_custom_target(product DEPENDS KELHandler SluiceHub kelctl)
foreach(made_by_kelctl completions man)
  if(TARGET ${made_by_kelctl})
    add_dependencies(product ${made_by_kelctl})
  endif()
endforeach()
