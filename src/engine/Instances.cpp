// SPDX-License-Identifier: MIT
#include "engine/Instances.h"

#include "adapter/Dorv.h"

namespace kel {

/// Gives an engine its row number.
class EngineTable {
 public:
  static void setHandle(BrelEngine& engine, std::uint32_t handle) { engine.mHandle = handle; }
};

namespace {

constexpr std::uint32_t kRows = 16;
constexpr std::uint32_t kMostEngines = 15;

struct BrelInstanceSlot {
  std::shared_ptr<BrelEngine> instance;
  std::atomic<std::uint32_t> dorvHandle{kNoDorvHandle};  ///< atomic: BrelGetDorvHandle reads it without the lock
};

platform::CriticalSection gBrelInstLock;
/// Without a destructor: an engine that a client leaves open still has its threads while the process ends.
union KeptTable {
  constexpr KeptTable() : rows() {}
  ~KeptTable() {}
  BrelInstanceSlot rows[kRows];
};
constinit KeptTable gKeptTable;
BrelInstanceSlot (&gBrelInstances)[kRows] GUARDED_BY(gBrelInstLock) = gKeptTable.rows;
std::atomic<std::uint32_t> gBrelInstCount{0};  ///< also tested outside of the lock

}  // namespace

std::shared_ptr<BrelEngine> AddBrelInst(std::uint32_t* handle) {
  *handle = kNoBrelHandle;
  if (gBrelInstCount == 0) gBrelInstLock.init();
  gBrelInstLock.enter();
  if (gBrelInstCount == kMostEngines) {
    gBrelInstLock.leave();
    return nullptr;
  }
  if (gBrelInstCount == 0) {
    for (BrelInstanceSlot& row : gBrelInstances) {
      row.instance = nullptr;
      row.dorvHandle = kNoDorvHandle;
    }
  }
  std::uint32_t row = 0;
  while (row < kRows && gBrelInstances[row].instance != nullptr) ++row;
  if (row == kRows) {
    gBrelInstLock.leave();
    return nullptr;
  }
  ++gBrelInstCount;
  std::shared_ptr<BrelEngine> engine;
  {
    const SwitchesReadOnce forAllItsLoggers;
    engine = std::make_shared<BrelEngine>();
  }
  gBrelInstances[row].instance = engine;
  EngineTable::setHandle(*engine, row);
  *handle = row;
  gBrelInstLock.leave();
  return engine;
}

std::shared_ptr<BrelEngine> GetBrelInst(std::uint32_t handle) {
  if (handle >= kRows) return nullptr;
  const platform::InSection inTable(gBrelInstLock);
  return gBrelInstances[handle].instance;
}

std::shared_ptr<BrelEngine> GetBrelInstByDorvHandle(std::uint32_t dorvHandle) {
  const platform::InSection inTable(gBrelInstLock);
  for (const BrelInstanceSlot& row : gBrelInstances) {
    if (row.dorvHandle == dorvHandle) return row.instance;
  }
  return nullptr;
}

bool GetDorvHandle(std::uint32_t handle, std::uint32_t* dorvHandle) {
  *dorvHandle = kNoDorvHandle;
  if (handle >= kRows) return false;
  const platform::InSection inTable(gBrelInstLock);
  *dorvHandle = gBrelInstances[handle].dorvHandle;
  return true;
}

bool SetDorvHandle(std::uint32_t handle, std::uint32_t dorvHandle) {
  if (handle >= kRows) return false;
  const platform::InSection inTable(gBrelInstLock);
  gBrelInstances[handle].dorvHandle = dorvHandle;
  return true;
}

void RemoveBrelInst(std::uint32_t handle) NO_THREAD_SAFETY_ANALYSIS {
  // Tested ahead of the lock: a row that has an engine is changed by nobody but who removes it.
  if (handle >= kRows || gBrelInstances[handle].instance == nullptr) return;
  gBrelInstLock.enter();
  std::shared_ptr<BrelEngine> engine = std::move(gBrelInstances[handle].instance);
  gBrelInstances[handle].instance = nullptr;
  engine->debugPrint()(" - RemoveBrelInst - Deleting BrelEngine instance \n");
  // Threads that it still has keep it alive. None are left after Finalize(), unless that failed on the way.
  engine->stopThreads();
  engine.reset();
  gBrelInstances[handle].dorvHandle = kNoDorvHandle;
  --gBrelInstCount;
  gBrelInstLock.leave();
  if (gBrelInstCount == 0) {
    gBrelInstLock.destroy();
    platform::releaseThreads();
  }
}

std::uint32_t BrelGetDorvHandle(std::uint32_t handle) NO_THREAD_SAFETY_ANALYSIS {
  return gBrelInstances[handle].dorvHandle;
}

}  // namespace kel
