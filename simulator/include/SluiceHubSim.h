/* SPDX-License-Identifier: MIT */
/*
 * Control of the stand-in SluiceHub: what it answers, when, and what it saw.
 *
 * The stand-in has the names of the closed pipe library and, with no set-up at all, a device behind it that answers
 * every task of the built-in table. This interface replaces any of that for tests and demonstrations:
 *
 *     SluiceHubSimRule late = {0};
 *     late.tui = 0x38240;
 *     late.tuiMask = SLUICEHUBSIM_EXACT;
 *     late.delayMs = 200;
 *     SluiceHubSim_AddRule(&late);           every response of this task comes 200 ms late
 *
 * A scenario does much of that with no code: a JSON file that the environment variable SLUICEHUB_SCENARIO names, or
 * else SluiceHub.json in the working directory. The first connect puts it in force, its rules behind those that there
 * are then. A scenario with mistakes is reported on standard error, and every connect gives
 * SLUICEHUBSIM_STATUS_BAD_SCENARIO. docs/scenarios.md has the language.
 *
 * What the device does by itself
 *
 *  - Tasks that get or set the trace path, the 256 severities and the statistics work on a state that this process
 *    shares. The statistics are 32-bit counters of requests: of all tasks, then of each in the built-in table's order.
 *  - TASK_ID_VERSIONS_GET_UIDS answers with the four words 1144315543, 0, 0, 0.
 *  - A streamer answers with an acknowledgement, then as many messages as the request's first value says (0: 5), one
 *    every so many milliseconds as its second value says, then the end of the stream. A broadcaster does the same with
 *    broadcasts (0: 1) and no end. Their payloads are the three values index, count, interval.
 *  - TASK_ID_CHIPLAB_STREAM_CLOSE ends the streams of TASK_ID_CHIPLAB_STREAM_OPEN.
 *  - TASK_ID_HOST_FRAMEWORK_SHUTDOWN answers, and then the link is lost with SLUICEHUBSIM_REASON_SHUTDOWN.
 *  - Debug and test tasks echo the payload. Other VAL tasks answer with 0 and the second and third value of the
 *    request, other REF tasks with an echo.
 *  - A request that expects no response gets none, except that streams and broadcasts start all the same.
 *  - A TUI that is not in the table is refused with SLUICEHUBSIM_L4_UNKNOWN_TASK, unless a rule answers for it.
 *
 * Conventions
 *
 *  1. Every function may be called from any thread, a handler's included, and before anything is connected.
 *  2. Buffers are copied during the call, both ways. A function that fills a buffer takes its room and writes no more.
 *  3. Times are in milliseconds, sizes in bytes, flags and answers 1 for yes and 0 for no.
 *  4. No function blocks unless it says so.
 *  5. Handlers are called on one delivery thread per connection, one message at a time, in the order of the times that
 *     they are due, and of their posting if these are equal.
 *  6. A process may end with connections open: their handlers are then called no more. Before the library is unloaded,
 *     connections have to be closed.
 */
#ifndef SLUICEHUBSIM_H
#define SLUICEHUBSIM_H

#include <stdint.h>
#include <wchar.h>

#if defined(__GNUC__)
#define SLUICEHUBSIM_API __attribute__((visibility("default")))
#else
#define SLUICEHUBSIM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results that the stand-in gives of its own accord ---- */

/* Statuses of the L5 functions. */
#define SLUICEHUBSIM_STATUS_OK 0u
#define SLUICEHUBSIM_STATUS_NO_CONNECTION 1u /* The connection was never open, or is closed. */
#define SLUICEHUBSIM_STATUS_LINK_LOST 2u     /* The connection is open, its link is gone. */
#define SLUICEHUBSIM_STATUS_NO_AGENT 3u      /* There is no such peer. */
#define SLUICEHUBSIM_STATUS_BAD_ARGUMENT 4u  /* A null output, or the body of an indication is malformed. */
#define SLUICEHUBSIM_STATUS_NO_RESOURCES 5u  /* Out of memory or threads. */
#define SLUICEHUBSIM_STATUS_BAD_SCENARIO 6u  /* The scenario has mistakes; standard error tells them. */

/* Reason of the disconnect event after TASK_ID_HOST_FRAMEWORK_SHUTDOWN. */
#define SLUICEHUBSIM_REASON_SHUTDOWN 1u

/* Reply message IDs by which an agent refuses a message. */
#define SLUICEHUBSIM_REPLY_UNKNOWN_MESSAGE 1u
#define SLUICEHUBSIM_REPLY_MALFORMED 2u

/* L4 status and error word in the reply to a request for a task that the device does not know. */
#define SLUICEHUBSIM_L4_UNKNOWN_TASK 1u
#define SLUICEHUBSIM_L4_ERROR_UNKNOWN_TASK 513u

/** Everything back to what it was when the library was loaded: rules, results, the device's state, control status and
    its callbacks, counts, the request log, traces. Open connections and what is on its way to them stay. A scenario
    starts again with the next connect, its seed and its counts too; its file is not read again. */
SLUICEHUBSIM_API void SluiceHubSim_Reset(void);

/**
 * Puts another scenario in the place of the process's own, for good, and does what SluiceHubSim_Reset does. Its file is
 * read now, and it begins with the next connect, its control status with the next look at that. A capture that it asks
 * for is begun only if there was none before.
 *
 * fileName    Its file, in UTF-8. Null: a scenario without anything.
 *
 * Returns 1, or 0 if the scenario has mistakes: then the next connect tells them, and nothing is connected.
 */
SLUICEHUBSIM_API uint32_t SluiceHubSim_SetScenario(const char* fileName);

/* ---- Rules: other answers to task requests ---- */

#define SLUICEHUBSIM_EXACT 0xFFFFFFu /* tuiMask of a rule for one task */

/* Flags of a rule. SLUICEHUBSIM_BEFORE_REPLY does not go with holdBack, and has no effect on a request that a handler
   of the same connection sends. */
#define SLUICEHUBSIM_DROP 0x1u         /* The request is taken and acted on, and nothing comes back. */
#define SLUICEHUBSIM_BEFORE_REPLY 0x2u /* SendReceiveMessage returns after the handler has had the response. */
#define SLUICEHUBSIM_DATA 0x4u         /* `data` is the payload of the response. */
#define SLUICEHUBSIM_BODY 0x8u         /* `data` is the whole body of the response's message. */
#define SLUICEHUBSIM_TYPE 0x10u        /* `type` goes into the type bits of the response. */
#define SLUICEHUBSIM_CLASS 0x20u       /* `seqClass` goes into the class bits of the response's sequence byte. */
#define SLUICEHUBSIM_STREAM 0x40u      /* The task answers with a stream of the shape given. */
#define SLUICEHUBSIM_NO_END 0x80u      /* The stream has no end message. */
#define SLUICEHUBSIM_ACK_LAST 0x100u   /* The stream's acknowledgement follows its end. */

/** One rule. A rule of zeros is for every request, without end, and changes nothing. */
typedef struct SluiceHubSimRule {
  /* Which requests it is for: those whose TUI agrees with `tui` in the bits of `tuiMask`. */
  uint32_t tui;
  uint32_t tuiMask;
  uint32_t skip;  /* So many of them pass by first. */
  uint32_t times; /* Then it holds for so many; 0 is no end. */

  /* The immediate reply. A request that it refuses does not reach the device and gets no response. */
  uint32_t sendStatus; /* What SendReceiveMessage returns. Not 0 refuses. */
  uint32_t replyID;    /* The reply message ID. Not 0 refuses. */
  uint32_t L4status;   /* At offset 8 of the reply, 32 bits wide. Its lower 16 bits refuse if they are not 0. */
  uint32_t L4error;    /* At offset 0 of the reply. Refuses nothing. */

  /* The response. */
  uint32_t flags;
  uint32_t delayMs;   /* It comes so much later. A stream and broadcasts follow it. */
  uint32_t copies;    /* So many further copies follow it at once. */
  uint32_t holdBack;  /* It waits until so many later responses of the connection have been delivered. */
  uint32_t type;      /* 0 VAL, 1 REF; see SLUICEHUBSIM_TYPE. */
  uint32_t seqClass;  /* 0 acknowledgement, 1 stream message, 2 stream end, 3 undefined; see SLUICEHUBSIM_CLASS. */
  uint32_t errorCode; /* Its errorCode word. */
  const void* data;   /* May be null if dataSize is 0. */
  uint32_t dataSize;

  /* The shape of the stream, with SLUICEHUBSIM_STREAM. */
  uint32_t streamCount;       /* Messages before the end. */
  uint32_t streamIntervalMs;  /* Time from one to the next. */
  uint32_t streamPayloadSize; /* Not 0: messages are REF with so many bytes, the three values first. */
  uint32_t streamAfterEnd;    /* Messages after the end. */
} SluiceHubSimRule;

/**
 * Adds a rule behind those there are. For each request the first rule wins that fits and is neither still skipping nor
 * used up; a rule counts the requests that fit it and that no earlier rule took.
 *
 * Returns the rule's number, from 1.
 */
SLUICEHUBSIM_API uint32_t SluiceHubSim_AddRule(const SluiceHubSimRule* rule);

/** Takes all rules away. Responses on their way stay. Numbers of rules are not given again. */
SLUICEHUBSIM_API void SluiceHubSim_ClearRules(void);

/** How many requests a rule has held for. 0 for a rule that does not exist. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_RuleUses(uint32_t rule);

/* ---- Results of the library's functions ---- */

typedef enum SluiceHubSimFunction {
  SLUICEHUBSIM_INIT,
  SLUICEHUBSIM_FINALIZE,
  SLUICEHUBSIM_REGISTER_CTRL_STATUS,
  SLUICEHUBSIM_UNREGISTER_CTRL_STATUS,
  SLUICEHUBSIM_GET_CTRL_STATUS,
  SLUICEHUBSIM_SET_CONN_PARAMS,
  SLUICEHUBSIM_IS_VERSION_VALIDATION_ENABLED, /* 1 unless forced */
  SLUICEHUBSIM_VALIDATE_VERSION,         /* unless forced: 0 for equal versions, 1 for equal first numbers, else 2 */
  SLUICEHUBSIM_GET_VERSION,              /* cannot be forced: SluiceHubSim_SetVersion */
  SLUICEHUBSIM_GET_DISPATCHER_FUNCTIONS, /* forced to anything: null */
  SLUICEHUBSIM_L5_CONNECT,               /* forced: opens nothing and gives the connection 0, also with the result 0 */
  SLUICEHUBSIM_L5_DISCONNECT,            /* forced: the connection stays open */
  SLUICEHUBSIM_SEND_RECEIVE,             /* forced: the agents get nothing, outputs stay as they were */
  SLUICEHUBSIM_WRITE_TRACE,              /* cannot be forced; not counted */
  SLUICEHUBSIM_FUNCTION_COUNT
} SluiceHubSimFunction;

/** Has a function do nothing but return `result`, until SluiceHubSim_UnforceResult. */
SLUICEHUBSIM_API void SluiceHubSim_ForceResult(SluiceHubSimFunction function, uint32_t result);
SLUICEHUBSIM_API void SluiceHubSim_UnforceResult(SluiceHubSimFunction function);

/** How often a function was called. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_Calls(SluiceHubSimFunction function);

/** How KelProxyAgent answers. */
typedef struct SluiceHubSimSocketReply {
  uint32_t acquireStatus; /* SendReceiveMessage's result for an acquisition, */
  uint32_t replyID;       /* its reply message ID (1001 is the right one), */
  uint32_t replySize;     /* the size that it tells, */
  uint8_t socketID;       /* and the socket ID in its first byte. */
  uint32_t releaseStatus; /* SendReceiveMessage's result for a release. */
} SluiceHubSimSocketReply;

/** Has KelProxyAgent answer with this, with no socket ID taken or given back. Null: the lowest free ID from 0 on. */
SLUICEHUBSIM_API void SluiceHubSim_SetSocketReply(const SluiceHubSimSocketReply* reply);

/** Sets what SLUICE_HUB_GetVersion gives; 4, 1, 0, 21, 0 at first. */
SLUICEHUBSIM_API void SluiceHubSim_SetVersion(const uint32_t numbers[5]);

/** The true form of the callbacks for the control status. */
typedef void (*SluiceHubSimCtrlStatusCallback)(uint32_t status);

/** Sets the control status, 0 at first, and calls the callbacks on a thread of the stand-in. Blocks until they are
    done. */
SLUICEHUBSIM_API void SluiceHubSim_SetCtrlStatus(uint32_t status);

/** The connection parameters as last set, zeros at first. Either pointer may be null. */
SLUICEHUBSIM_API void SluiceHubSim_GetConnParams(uint64_t* params, uint32_t* value);

/* ---- Messages and events from the device side ----
 *
 * `connection` 0 means every connection. With `wait` 1 the functions block until the handlers have returned or the
 * connection is closed; a connection whose own delivery thread makes the call is not waited for. All return the number
 * of connections concerned.
 */

/** Delivers a message with any ID and any body. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_DeliverMessage(uint64_t connection, uint32_t messageID, const void* body,
                                                      uint32_t size, uint32_t wait);

/** Delivers a task record in a well-formed response, addressed to the connection's row. `word` is its whole first
    word. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_DeliverRecord(uint64_t connection, uint32_t word, uint32_t errorCode,
                                                     uint32_t seqTUI, const void* payload, uint32_t size,
                                                     uint32_t wait);

/** Delivers a broadcast of a task: SluiceHubSim_DeliverRecord with the broadcast target and no sequence byte. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_Broadcast(uint64_t connection, uint32_t tui, uint32_t seqTUI,
                                                 const void* payload, uint32_t size, uint32_t wait);

/** Delivers an event. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_DeliverEvent(uint64_t connection, uint32_t event, uint32_t reason,
                                                    uint32_t wait);

/** Loses the link: what is on its way is dropped, the disconnect event is delivered with `reason`, and every later send
    gives SLUICEHUBSIM_STATUS_LINK_LOST. The connection still has to be closed by its owner. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_LoseLink(uint64_t connection, uint32_t reason, uint32_t wait);

/* ---- What happened ---- */

/** Copies the values of the open connections, oldest first. Returns how many there are, which may be above `room`. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_GetConnections(uint64_t* values, uint32_t room);

/** Totals since the library was loaded or reset. */
typedef struct SluiceHubSimCounts {
  uint64_t messages;      /* Messages to any agent; the request log has the last 64 of them. */
  uint64_t requests;      /* Those of them to L4msgProxy. */
  uint64_t requestBytes;  /* Their bodies. */
  uint64_t responses;     /* Messages that handlers were called with, of whatever origin. */
  uint64_t responseBytes; /* Their bodies. */
} SluiceHubSimCounts;

SLUICEHUBSIM_API void SluiceHubSim_GetCounts(SluiceHubSimCounts* counts);

/** A message that reached an agent. */
typedef struct SluiceHubSimRequest {
  uint64_t connection;
  uint32_t agent;
  uint32_t messageID;
  uint32_t size; /* Of its body. */
} SluiceHubSimRequest;

#define SLUICEHUBSIM_LAST UINT64_MAX

/**
 * Copies a message of the request log.
 *
 * index       0 for the first message there was, or SLUICEHUBSIM_LAST.
 * request     Gets its head; may be null.
 * body, room  Get its body, cut to `room`; may be null and 0.
 *
 * Returns 1, or 0 if it is not there or no longer.
 */
SLUICEHUBSIM_API uint32_t SluiceHubSim_GetRequest(uint64_t index, SluiceHubSimRequest* request, void* body,
                                                  uint32_t room);

/** Blocks until L4msgProxy has had `count` requests in all. Returns 1, or 0 after the time-out. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_WaitForRequests(uint64_t count, uint32_t timeoutMs);

/** Blocks until nothing is on its way on any connection and no handler runs; responses held back do not count, what a
    scenario has planned does. Not to be called by a handler. Returns 1, or 0 after the time-out. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_WaitIdle(uint32_t timeoutMs);

/**
 * Begins a capture: every L5 message and event of the process from now on, in a pcapng file of link type USER0.
 * docs/captures.md tells how to read it. The environment variable SLUICEHUB_CAPTURE names a file to begin with the
 * first connection, and goes before this. The capture ends with the process; SluiceHubSim_Reset leaves it alone.
 *
 * fileName    Its file, in UTF-8; an older one is replaced. `%p` becomes digits that differ from process to process.
 *
 * Returns 1, or 0 if there was a capture already or the file cannot be opened, which is also written to standard error.
 */
SLUICEHUBSIM_API uint32_t SluiceHubSim_StartCapture(const char* fileName);

/* ---- Traces ---- */

/** A trace, its texts cut to the room here. */
typedef struct SluiceHubSimTrace {
  uint32_t sourceMask;
  uint32_t level;
  uint32_t line;
  wchar_t file[64];
  wchar_t function[64];
  wchar_t text[256]; /* Formatted. */
} SluiceHubSimTrace;

/** Keeps traces whose level has a bit in common with `levels`, the newest 4096 of them. At first 0: none. */
SLUICEHUBSIM_API void SluiceHubSim_KeepTraces(uint32_t levels);

/** How many traces are kept. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_TraceCount(void);

/** Copies a trace; index 0 is the oldest. Returns 1, or 0 if there is no such trace. */
SLUICEHUBSIM_API uint32_t SluiceHubSim_GetTrace(uint32_t index, SluiceHubSimTrace* trace);

/** Forgets the traces. */
SLUICEHUBSIM_API void SluiceHubSim_ClearTraces(void);

#ifdef __cplusplus
}
#endif

#endif
