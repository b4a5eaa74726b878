# SPDX-License-Identifier: MIT
# find_package(KELHandler 4.1 [REQUIRED] [COMPONENTS Simulator Fleet])
#
# Gives these targets:
#   KELHandler::KELHandler  the library, and KELHandler.h
#   KELHandler::client      the same with the client layer for C++17, kel/client.hpp
#   KELHandler::SluiceHub   where the stand-in pipe library is installed, for programs that call its controls
#                           (SluiceHubSim.h). Other programs need not name the pipe library.
#   KELHandler::fleet       where it is installed, and libnats-dev: devices on other hosts, kel/fleet.hpp
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/KELHandlerTargets.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/SluiceHubTargets.cmake" OPTIONAL RESULT_VARIABLE KELHandler_Simulator_FOUND)

set(KELHandler_Fleet_FOUND FALSE)
if(EXISTS "${CMAKE_CURRENT_LIST_DIR}/KELHandlerFleetTargets.cmake")
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(NATS QUIET IMPORTED_TARGET libnats)
  endif()
  if(TARGET PkgConfig::NATS)
    include("${CMAKE_CURRENT_LIST_DIR}/KELHandlerFleetTargets.cmake")
    set(KELHandler_Fleet_FOUND TRUE)
  endif()
endif()

# Microsoft's linker has import libraries of its own form, which lie beside the others.
if(MSVC)
  foreach(library KELHandler SluiceHub)
    if(TARGET KELHandler::${library})
      set_target_properties(KELHandler::${library} PROPERTIES
        IMPORTED_IMPLIB_RELWITHDEBINFO "${CMAKE_CURRENT_LIST_DIR}/../../${library}.lib")
    endif()
  endforeach()
endif()

foreach(component IN LISTS KELHandler_FIND_COMPONENTS)
  if(KELHandler_FIND_REQUIRED_${component} AND NOT KELHandler_${component}_FOUND)
    set(KELHandler_FOUND FALSE)
    set(KELHandler_NOT_FOUND_MESSAGE "KELHandler is there, but not its component ${component}")
  endif()
endforeach()
