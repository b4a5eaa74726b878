/* SPDX-License-Identifier: MIT */
// KELHandler and its pipe library, as the system's loader finds them.
#pragma once

#include <string>

namespace kelctl {

using Library = void*;

// Each is loaded by the loader's own search, with all that it imports. Null on failure, and then loaderWords() has the
// system's reason. They stay loaded.
Library loadKelHandler();
Library loadPipeLibrary();
std::string loaderWords();

/// Null if the library has no such name.
void* findFunction(Library library, const char* name);

/// "libSluiceHub.so" or "SluiceHub.dll"
const char* pipeLibraryName();
/// The file that a search for the pipe library comes to, loadable or not; empty for none.
std::string findPipeLibrary();

/// The file that the pipe library of this process was loaded from; empty if it is not loaded.
std::string pipeLibraryFile();
/// Whether that is the stand-in, which has controls beside the calls of a pipe library.
bool isStandIn();

}  // namespace kelctl
