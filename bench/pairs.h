/* SPDX-License-Identifier: MIT */
// Which benchmark is measured against which.
#pragma once

namespace bench {

/// A benchmark of the library and what it stands beside, by their registered names: a bare limit of the same shape, or
/// another library. A pair with one that was not run is left out.
struct Pair {
  const char* subject;
  const char* beside;
};

inline constexpr Pair kPairs[] = {
    {"SynchronousTask/12", "FutexPingPong"},
    {"SynchronousTask/12", "PipeLibraryRoundTrip/12"},
    {"SynchronousTask/12", "ZeroMqRoundTrip/12"},
    {"SynchronousTask/4096", "FutexPingPong"},
    {"SynchronousTask/4096", "PipeLibraryRoundTrip/4096"},
    {"SynchronousTask/4096", "ZeroMqRoundTrip/4096"},
    {"SynchronousTask/12/released", "FutexPingPong"},
    {"SynchronousTask/12/released", "ZeroMqRoundTrip/12"},
    {"SynchronousTask/4096/released", "FutexPingPong"},
    {"SynchronousTask/4096/released", "ZeroMqRoundTrip/4096"},
    {"AsynchronousTasks/1", "ThreadStarts/1"},
    {"AsynchronousTasks/1", "ParkedThreads/1"},
    {"AsynchronousTasks/1", "ZeroMqInFlight/1"},
    {"AsynchronousTasks/64", "ThreadStarts/64"},
    {"AsynchronousTasks/64", "ParkedThreads/64"},
    {"AsynchronousTasks/64", "ZeroMqInFlight/64"},
    {"AsynchronousTasks/1/released", "ParkedThreads/1"},
    {"AsynchronousTasks/64/released", "ParkedThreads/64"},
    // The client layer beside the bare calls that it makes, with a callback that wakes the caller, and beside the
    // synchronous call, which needs one thread switch less.
    {"LayerTask/1", "AsynchronousTasks/1/released"},
    {"LayerTask/1", "SynchronousTask/12/released"},
    {"LayerTasks/64", "AsynchronousTasks/64/released"},
    // With more in flight, and then with more connections.
    {"EngineTasks/1/1", "FutexPingPong"},
    {"EngineTasks/1/4", "EngineTasks/1/1"},
    {"EngineTasks/1/16", "EngineTasks/1/1"},
    {"EngineTasks/1/60", "EngineTasks/1/1"},
    {"EngineTasks/2/1", "EngineTasks/1/1"},
    {"EngineTasks/4/1", "EngineTasks/1/1"},
    {"EngineTasks/8/1", "EngineTasks/1/1"},
    {"EngineTasks/15/1", "EngineTasks/1/1"},
    {"EngineTasks/2/4", "EngineTasks/1/4"},
    {"EngineTasks/4/4", "EngineTasks/1/4"},
    {"EngineTasks/8/4", "EngineTasks/1/4"},
    {"EngineTasks/15/4", "EngineTasks/1/4"},
    {"EngineTasks/2/16", "EngineTasks/1/16"},
    {"EngineTasks/4/16", "EngineTasks/1/16"},
    {"EngineTasks/8/16", "EngineTasks/1/16"},
    {"EngineTasks/15/16", "EngineTasks/1/16"},
    {"EngineTasks/15/16", "FutexPingPong"},
    {"EngineTasks/2/60", "EngineTasks/1/60"},
    {"EngineTasks/4/60", "EngineTasks/1/60"},
    {"EngineTasks/8/60", "EngineTasks/1/60"},
    {"EngineTasks/15/60", "EngineTasks/1/60"},
    {"StreamMessages", "LockedQueue"},
    {"StreamMessages", "PipeLibraryStream"},
    {"StreamMessages", "ZeroMqPushPull"},
    {"StreamMessages/released", "LockedQueue"},
    {"Broadcasts", "LockedQueue"},
    {"Broadcasts", "PipeLibraryBroadcasts"},
    {"Broadcasts", "ZeroMqPublish"},
    {"ConnectDisconnect", "PipeLibraryConnect"},
    {"ConnectDisconnect", "ZeroMqConnect"},
    {"LoadTaskTable", "SplitTaskTable"},
    {"FindTuiByName", "MapLookup"},
    // Through NATS: device and echo on the client's own server, and across two of a cluster.
    {"FleetTask/same", "NatsRequest/same"},
    {"FleetTask/across", "NatsRequest/across"},
    {"FleetTasks/same", "NatsRequests/same"},
    {"FleetTasks/across", "NatsRequests/across"},
    {"FleetStream/same", "NatsStream/same"},
    {"FleetStream/across", "NatsStream/across"},
    {"LogLineOff", "FlagTest"},
    {"LogLineOn", "FileAppend"},
};

}  // namespace bench
