// SPDX-License-Identifier: MIT
/**
 * @file
 * The version of the client layer, which is not that of the library. It is semantic: within a major version programs
 * that compile go on compiling and mean the same; what is in the namespace `detail` may change with any version. A new
 * major version has another inline namespace, so that parts of one program may be built with different ones.
 */
#pragma once

#define KEL_CLIENT_VERSION_MAJOR 1
#define KEL_CLIENT_VERSION_MINOR 0
#define KEL_CLIENT_VERSION_PATCH 0
