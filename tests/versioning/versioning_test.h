/* SPDX-License-Identifier: MIT */
// What the tests of version control share: the fetching of the generation's UIDs, and what an engine says meanwhile.
#pragma once

#include "engine/engine_test.h"
#include "support/private_member.h"
#include "support/transcript.h"

namespace kel::test {

inline constexpr std::uint32_t kUidsTui = 0x18100;

/// The UID of the built-in VersionsVector's generation, which the device reports by itself.
inline constexpr std::uint32_t kBuiltInUID = 1144315543;

/// An answer's words as bytes.
inline std::string Words(const std::vector<std::uint32_t>& words) {
  return std::string(reinterpret_cast<const char*>(words.data()), words.size() * sizeof words[0]);
}

/// Has the device answer the request for UIDs with this, before the send returns.
inline void AnswerUids(const std::string& payload, std::uint32_t type = 0) {
  SluiceHubSim_ClearRules();
  SluiceHubSimRule rule = RuleFor(kUidsTui, SLUICEHUBSIM_TYPE | SLUICEHUBSIM_DATA | SLUICEHUBSIM_BEFORE_REPLY);
  rule.type = type;
  rule.data = payload.data();
  rule.dataSize = static_cast<std::uint32_t>(payload.size());
  AddRule(rule);
}

inline void ReportUids(const std::vector<std::uint32_t>& words) { AnswerUids(Words(words)); }

inline void RefuseUids() {
  SluiceHubSim_ClearRules();
  SluiceHubSimRule refuse = RuleFor(kUidsTui);
  refuse.L4status = 1;
  AddRule(refuse);
}

/// A file of the client's.
struct ClientFile {
  std::string name = "Statistics.bm";
  std::string content = "statistics";
  std::uint64_t userVersion = 0;

  Status validate(std::uint32_t handle, const char* versionsVectorsPath) {
    return BrelValidateVersion(handle, name.data(), content.data(), static_cast<std::uint32_t>(content.size()),
                               &userVersion, versionsVectorsPath);
  }
};

class VersioningTest : public EngineTest {
 protected:
  /// Has engines print, and wait for `rxWaitTimeout` at most.
  void tellAll(std::uint32_t rxWaitTimeout = kLong) {
    mRxWaitTimeout = std::to_string(rxWaitTimeout);
    folder.writeSettings("LogToConsole=1\nRxWaitTimeout=" + mRxWaitTimeout + "\n");
  }

  /// A new engine with version control.
  static Status activate(std::uint32_t* handle, const char* versionsVectorsPath = nullptr,
                         const char* TUIsFilePath = nullptr) {
    return BrelInit(handle, TUIsFilePath, 1, versionsVectorsPath, nullptr, nullptr);
  }

  /// What an engine says until its link is up.
  Transcript connected(bool externalTable = false) const {
    Transcript transcript;
    transcript.logged("info", "init", "Start \n");
    for (const std::string& setting :
         {std::string("LogToConsole = 1"), "RxWaitTimeout = " + mRxWaitTimeout,
          std::string("TUIsFilePath = KEL_ALLTASKS.csv"), std::string("UpperDriverIpAddress = 127.0.0.1"),
          std::string("UpperDriverPortNumber = 1234"), std::string("RequestStructDumpFilename = "),
          std::string("RequestStructPayloadDumpFilename = "), std::string("ResponseStructDumpFilename = "),
          std::string("ResponseStructPayloadDumpFilename = ")}) {
      transcript.info("LoadBrelIniSettings", setting + " \n");
    }
    return transcript.info("init", "Brel.ini file found. Replacing defaults. \n")
        .info("ReadTUIs", externalTable ? "The KEL_ALLTASKS.csv TUIs file was opened. \n"
                                        : "The KEL_ALLTASKS.csv TUIs file could NOT be opened. Using defaults. \n")
        .info("init", "loaded TUIs \n")
        .info("ActivateAsyncThread", "OK init async listener \n")
        .info("init", "Dorv.dll loaded \n")
        .info("init", "Dorv.dll initialized \n")
        .printed("BBBBBBBBB\nBrelInit - current handle = 0, DorvHandle = 0\nBBBBBBBBB\n")
        .info("init", "Dorv.dll connected to Upper Driver \n");
  }

  /// The request for the UIDs, up to its send.
  static Transcript asked(std::uint32_t seqNum = 0) {
    return Transcript()
        .printed("\nTUI = 98560\n")
        .assigned(seqNum)
        .info("IssueCommandBase", "assigned sequence number " + std::to_string(seqNum) + " \n");
  }
  /// The whole of it, with its answer.
  static Transcript fetched(std::uint32_t seqNum = 0) {
    return asked(seqNum)
        .sentAndAnswered("IssueCommandBase", seqNum)
        .answerTaken("IssueCommandBase", seqNum)
        .info("IssueCommandBase", "response received from Dorv \n");
  }
  /// What the fetching says of a failed request, and of an answer without UIDs.
  static Transcript notFetched(Transcript transcript) {
    return transcript.error("RetrieveVersionsUIDsArray", "Failed to retrieve VerGenUIDsVector from the UpperDriver \n");
  }
  static Transcript fetchedNone(Transcript transcript) {
    return transcript.error("RetrieveVersionsUIDsArray",
                            "The VerGenUIDsVector retrieved from the UpperDriver contained no UIDs \n");
  }

  /// The resources that a vector was looked for in and not found.
  static Transcript vectorsMissing(const std::vector<std::string>& sides) {
    Transcript transcript;
    for (const std::string& side : sides) {
      transcript.error("LoadVersionsVectorsResources",
                       "The resouce equivalent of the " + side + "'s VersionsVector file could not be found. \n");
    }
    return transcript;
  }

  static Transcript builtInTableRetrieved() {
    return Transcript().info(
        "RetrieveRawTUIsList",
        "An external KEL_ALLTASKS.csv TUIs file could not be opened. Retrieving internal resource. \n");
  }

  /// The end of an activation that went well, and of one that did not, which takes the engine down.
  static Transcript activated() {
    return Transcript().info("init", "Versioning support initialized \n").info("init", "End \n");
  }
  static Transcript tornDown() {
    return Transcript()
        .error("init", "Failed to initialize Versioning support \n")
        .info("Finalize", "Start \n")
        .info("Finalize", "Dorv.dll disconnected from Upper Driver \n")
        .info("Finalize", "Dorv.dll finalized \n")
        .printed("inside ShutdownAlerterThread\n")
        .info("ShutdownAsyncThread", "all async listener threads already stopped \n")
        .info("Finalize", "End \n");
  }
  static Transcript removed() { return Transcript().printed(" - RemoveBrelInst - Deleting BrelEngine instance \n"); }

  Recorder recorder;

 private:
  std::string mRxWaitTimeout;
};

/// One transcript after another.
inline Transcript operator+(Transcript first, const Transcript& second) { return first += second; }

}  // namespace kel::test
