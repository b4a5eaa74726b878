// SPDX-License-Identifier: MIT
// The texts of the engine status and of the callback status.
#include "engine/Status.h"

namespace kel {
namespace {

constexpr const char* kStatusTexts[] = {
    /*  0 */ "Brel - Error - Brel has encountered an unknown error.",
    /*  1 */ "Brel - Error - The current operation has failed.",
    /*  2 */ "Brel - Success - The current operation was completed successfully.",
    /*  3 */
    "Brel - Error - Failed to populate the Brel's internal TUI's list (from either the internal resource or external KEL_ALLTASKS.csv file).",
    /*  4 */
    "Brel - Success - Successfully populated Brel's internal TUI's list (from either the internal resource or external KEL_ALLTASKS.csv file).",
    /*  5 */ "Brel - Error - DorvDll.dll - Loading of the DorvDll.dll library has failed.",
    /*  6 */ "Brel - Success - DorvDll.dll - Successfully loaded the DorvDll.dll library.",
    /*  7 */ "Brel - Error - DorvDll.dll - Initialization of the DorvDll.dll library has failed.",
    /*  8 */ "Brel - Success - DorvDll.dll - Successfully initialized the DorvDll.dll library.",
    /*  9 */ "Brel - Error - DorvDll.dll - Finalization of the DorvDll.dll library has failed.",
    /* 10 */ "Brel - Success - DorvDll.dll - Successfully finalized the DorvDll.dll library.",
    /* 11 */
    "Brel - Error - DorvDll.dll - The DorvDll.dll has failed to establish a connection with the Upper (UserMode) Driver.",
    /* 12 */
    "Brel - Success - DorvDll.dll - The DorvDll.dll successfully established a connection with the Upper (UserMode) Driver.",
    /* 13 */
    "Brel - Error - DorvDll.dll - The size of the input parameters buffer is larger than the maximum task payload size allowed (>8KB).",
    /* 14 */ "Brel - Error - DorvDll.dll - The DorvDll.dll failed to send the data to the Upper (UserMode) Driver.",
    /* 15 */
    "Brel - Success - DorvDll.dll - The DorvDll.dll has successfully sent the data to the Upper (UserMode) Driver.",
    /* 16 */
    "Brel - Error - DorvDll.dll - The DorvDll.dll has encountered a TIMEOUT error while trying to send the data to the Upper (UserMode) Driver.",
    /* 17 */
    "Brel - Error - DorvDll.dll - The DorvDll.dll failed to send the data to the Upper (UserMode) Driver because they are disconnected.",
    /* 18 */ "Brel - Error - DorvDll.dll - The DorvDll.dll's connection to the Upper (UserMode) Driver was severed.",
    /* 19 */ "Brel - Error - Brel has received a response of a TYPE (REF/VAL) not expected for this request.",
    /* 20 */ "Brel - Error - Brel failed to extract the filename from the file path it was given.",
    /* 21 */ "Brel - Error - Version Control (RTV) - Initialization of Brel's Version Control support has failed.",
    /* 22 */
    "Brel - Error - Version Control (RTV) - Brel's Version Control has not been activated during Brel initialization. Version Control services are not available.",
    /* 23 */
    "Brel - Error - Version Control (RTV) - A null VersionsVector files path was specified to ValidateVersion. This is not allowed if Brel's Version Control has not been activated during Brel initialization.",
    /* 24 */
    "Brel - Error - Version Control (RTV) - Brel failed to retrieve the Version Control UIDs array from the driver.",
    /* 25 */ "Brel - Error - Version Control (RTV) - The file specified did not pass its version validation check.",
    /* 26 */
    "Brel - Error - Version Control (RTV) - None of the VersionsVector files contains a UID matching the ones received from the Upper (UserMode) Driver.",
    /* 27 */
    "Brel - Error - Version Control (RTV) - The file specified could not be found in any of the VersionsVector files which contain a UID matching one of those received from the Upper (UserMode) Driver.",
    /* 28 */ "Brel - Error - Version Control (RTV) - The RTV library was given NULL UID array.",
    /* 29 */
    "Brel - Error - Version Control (RTV) - The file name (of the file specified for version validation) is not valid.",
    /* 30 */
    "Brel - Error - Version Control (RTV) - The file buffer (of the file specified for version validation) is not valid.",
    /* 31 */
    "Brel - Error - Version Control (RTV) - A NULL pointer was specified in the userVersion argument of the ValidateVersion() API call.",
    /* 32 */
    "Brel - Error - Version Control (RTV) - The path specified to the VersionsVector files isn't NULL but there are no *VersionsVector.txt files in the folder.",
    /* 33 */
    "Brel - Error - Version Control (RTV) - Both the VersionsVector files path and Brel's internal VersionsVector resources buffer are NULL (we need to have one of them).",
};

constexpr const char* kCallbackStatusTexts[] = {
    "Brel - Callback - Success - The current operation was completed successfully.",
    "Brel - Callback - Error - The callback was triggered due to an unknown error encountered while waiting for data to arrive from the Upper (UserMode) Driver.",
    "Brel - Callback - Error - The callback was triggered due to a TIMEOUT expiration error encountered while waiting for data to arrive from the Upper (UserMode) Driver.",
};

template <std::uint32_t size>
constexpr const char* TextOf(const char* const (&texts)[size], std::uint32_t code) {
  return code < size ? texts[code] : nullptr;
}

}  // namespace

const char* StatusText(std::uint32_t code) { return TextOf(kStatusTexts, code); }
const char* CallbackStatusText(std::uint32_t code) { return TextOf(kCallbackStatusTexts, code); }

}  // namespace kel
