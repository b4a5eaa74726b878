# SPDX-License-Identifier: MIT
# Packages that the tools and tests stand on, taken from the distribution's sources and headers so that the same ones
# serve every compiler, sanitizer and target. The library itself uses none of them.
if(BUILD_TESTING)
  set(INSTALL_GTEST OFF CACHE INTERNAL "")
  set(BUILD_GMOCK ON CACHE INTERNAL "")
  add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  include(GoogleTest)
endif()

# CLI11 is headers only. A copy keeps the rest of /usr/include away from the cross compiler.
file(COPY /usr/include/CLI DESTINATION "${PROJECT_BINARY_DIR}/third_party/include")
add_library(CLI11 INTERFACE)
target_include_directories(CLI11 SYSTEM INTERFACE "${PROJECT_BINARY_DIR}/third_party/include")

# So is nlohmann-json.
file(COPY /usr/include/nlohmann DESTINATION "${PROJECT_BINARY_DIR}/third_party/include")
add_library(nlohmann_json INTERFACE)
target_include_directories(nlohmann_json SYSTEM INTERFACE "${PROJECT_BINARY_DIR}/third_party/include")
