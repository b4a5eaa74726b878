/* SPDX-License-Identifier: MIT */
// What the tests of the sequencer share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "sequencer/BrelTasksSequencer.h"
#include "support/registry_settings.h"
#include "support/scratch_directory.h"

namespace kel {

// The sequencer hands a listener on and never looks into it.
inline AsyncListener* const kListener = reinterpret_cast<AsyncListener*>(std::uintptr_t{0x1230});

}  // namespace kel

namespace kel::test {

inline constexpr std::uint32_t kUnknown = 40;  ///< a number that no test here opens unless it opens them all

inline void OnAnswer() {}
inline void OnStream() {}

/// A sequence as AssignSequence gives it out.
struct Opened {
  SeqStatus status = SEQ_ASSIGN_FAILED;
  std::uint32_t seqNum = 999;
  std::uint32_t streamSeqNum = 999;
  std::uint32_t streamEndSeqNum = 999;
  platform::Handle syncDataEvent = nullptr;
  platform::Handle aSyncDataEvent = nullptr;
  platform::Handle stopEvent = nullptr;
};

/// What an insertion gives out.
struct Inserted {
  SeqStatus status = SEQ_INSERT_FAILED;
  platform::Handle syncDataEvent = nullptr;
  platform::Handle aSyncDataEvent = nullptr;
  AsyncListener* asyncListenerInstance = nullptr;
  bool isAsync = false;
  bool isStream = false;
};

/// A buffer that a lookup gives out, freed with its scope.
struct Taken {
  SeqStatus status = SEQ_RETRIEVE_FAILED;
  std::uint32_t TUI = 999;
  std::unique_ptr<std::uint8_t, decltype(&std::free)> buffer{nullptr, &std::free};
  std::uint32_t size = 999;
  bool isStream = false;

  std::string text() const { return std::string(reinterpret_cast<const char*>(buffer.get()), size); }
};

class Sequencer : public testing::Test {
 protected:
  Sequencer() {
    registry.switchLogsOn();
    sequencer = std::make_unique<BrelTasksSequencer>();
  }

  Opened assign(std::uint32_t TUI = 0x34161, bool isAsync = false, bool isStream = false) {
    Opened o;
    o.status = sequencer->AssignSequence(BREL_INVOKE_TASK, 77, &o.seqNum, TUI, &o.syncDataEvent, &o.aSyncDataEvent,
                                         &o.stopEvent, OnAnswer, OnStream, &o.streamSeqNum, &o.streamEndSeqNum, isAsync,
                                         isStream);
    return o;
  }
  void assignAll() {
    for (std::uint32_t i = 0; i < kSequenceNumbers; ++i) ASSERT_EQ(assign().status, SEQ_ASSIGN_OK);
  }
  /// How many numbers are still free. Takes them all.
  std::uint32_t numbersLeft() {
    std::uint32_t count = 0;
    while (assign().status == SEQ_ASSIGN_OK) ++count;
    return count;
  }

  Inserted insertData(std::uint32_t seqNum, const void* buffer, std::uint32_t size) {
    Inserted i;
    i.status = sequencer->InsertDataBySeqNum(seqNum, static_cast<const std::uint8_t*>(buffer), size, &i.syncDataEvent,
                                             &i.aSyncDataEvent, &i.asyncListenerInstance, &i.isAsync, &i.isStream);
    return i;
  }
  Inserted insertData(std::uint32_t seqNum, const std::string& text) {
    return insertData(seqNum, text.data(), static_cast<std::uint32_t>(text.size()));
  }
  Inserted insertAsyncData(std::uint32_t seqNum, const void* buffer, std::uint32_t size) {
    Inserted i;
    i.status =
        sequencer->InsertAsyncDataBySeqNum(seqNum, static_cast<const std::uint8_t*>(buffer), size, &i.syncDataEvent,
                                           &i.aSyncDataEvent, &i.asyncListenerInstance, &i.isAsync, &i.isStream);
    return i;
  }
  Inserted insertAsyncData(std::uint32_t seqNum, const std::string& text) {
    return insertAsyncData(seqNum, text.data(), static_cast<std::uint32_t>(text.size()));
  }

  Taken retrieveData(std::uint32_t seqNum) {
    Taken taken;
    std::uint8_t* buffer = nullptr;
    taken.status = sequencer->RetrieveDataBySeqNum(seqNum, &taken.TUI, &buffer, &taken.size, &taken.isStream);
    taken.buffer.reset(buffer);
    return taken;
  }
  Taken retrieveNext(std::uint32_t seqNum) {
    Taken taken;
    std::uint8_t* buffer = nullptr;
    taken.status =
        sequencer->RetrieveNextAsyncBufferBySeqNum(seqNum, &taken.TUI, &buffer, &taken.size, &taken.isStream);
    taken.buffer.reset(buffer);
    return taken;
  }
  /// The buffer of the snapshot is freed, and null in the result.
  sequence_snapshot retrieve(std::uint32_t seqNum, SeqStatus* status = nullptr) {
    sequence_snapshot snapshot;
    const SeqStatus result = sequencer->RetrieveBySeqNum(seqNum, &snapshot);
    if (status != nullptr) *status = result;
    std::free(snapshot.buffer);
    snapshot.buffer = nullptr;
    return snapshot;
  }
  bool isOpen(std::uint32_t seqNum) {
    SeqStatus status = SEQ_RETRIEVE_FAILED;
    retrieve(seqNum, &status);
    return status == SEQ_RETRIEVE_OK;
  }

  const ScratchDirectory directory;
  RegistrySettings registry;
  std::unique_ptr<BrelTasksSequencer> sequencer;
};

/// With the log off, for tests that open many.
class QuietSequencer : public Sequencer {
 protected:
  QuietSequencer() {
    for (const char* level : {"Info", "Warn", "Err"}) registry.set(kLoggerRegistryKey, level, 0u);
    sequencer = std::make_unique<BrelTasksSequencer>();
  }
};

}  // namespace kel::test
