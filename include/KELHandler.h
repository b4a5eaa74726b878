/* SPDX-License-Identifier: MIT */
/*
 * KELHandler: control of a communications device from its host.
 *
 * A client connects, addresses the device's tasks by their names, sends payloads and gets answers. A task may answer
 * once or with a stream of messages, and the device may send broadcasts without being asked.
 *
 *     uint64_t conn;
 *     void* answer;
 *     uint32_t size;
 *     KEL_Init();
 *     if (KEL_Connect(NULL, NULL, &conn) == KEL_OK) {
 *       uint32_t values[3] = {1, 2, 3};
 *       if (KEL_SendReceiveKEL(conn, "TASK_ID_APPLICATION_DEBUG_VAL", 1, values, sizeof values, &answer, &size,
 *                              NULL) == KEL_OK) { ... }
 *       KEL_Disconnect(conn);
 *     }
 *     KEL_Finalize();
 *
 * Conventions
 *
 *  1. Results. Functions return KEL_OK or one of the KEL_E_* codes below; KEL_ValidateVersion has results of its own.
 *     The functions that pass a call on to the pipe library SluiceHub return its answer unread. An output argument is
 *     written only where its function says so.
 *  2. Sizes are in bytes, times in milliseconds. Integers in payloads are little-endian.
 *  3. Payloads come in two forms, fixed by the task. VAL: three 32-bit values, 12 bytes. REF: raw bytes. A payload is
 *     meant to have at most KEL_MAX_TASK_PAYLOAD bytes; larger ones are carried whole, but a device need not take them.
 *  4. Memory. What a client passes in stays the client's and is not needed after the call returns. What the library
 *     hands out through an output argument or to a broadcast callback comes from malloc() and is the client's from then
 *     on; a client that shares the library's C runtime may free() it, and there is no other way to give it back.
 *     The library keeps a block of about 8 KB for each task, unless ReleaseBlocks=1 in Brel.ini, or
 *     KELHANDLER_RELEASE_BLOCKS=1 in the environment, has it release what nobody uses any more.
 *  5. Threads. Every function may be called from any thread. KEL_Connect, KEL_ConnectEx, KEL_Disconnect, the four
 *     KEL_SendReceive* functions and KEL_ValidateVersion run one at a time in the whole process, over all connections:
 *     a call that waits for its answer keeps the others waiting for as long, which is RxWaitTimeout at most (10000 ms
 *     unless Brel.ini says otherwise). The other functions take no lock and do not block. A call under this rule may
 *     need the system's loader: a library's constructor or destructor, or a DllMain, must not make one.
 *  6. Callbacks run on threads of the library, one at a time per connection. Callbacks of different tasks may run on
 *     the same system thread, one after the other: what one leaves in thread-local data, or changes of its thread's
 *     locale, floating-point mode or processors, the next one finds. The pointers that callbacks get are told with each
 *     type. A callback may call any function here; a call under rule 5 waits until that of another thread has ended.
 *     KEL_Disconnect waits for its connection's running callback. It therefore never returns if that callback itself
 *     calls it, nor if that callback meanwhile makes another call under rule 5; and from then on no call under rule 5
 *     returns at all. A C++ exception that leaves a callback ends the program.
 *  7. Null pointers. Each function says which of its pointers may be null, and what that means. One of which it says
 *     nothing must not be null; a callback that is null is never called.
 *  8. An exhausted heap is a refusal like any other, with the function's own code: nothing is thrown at a client. What
 *     then stays taken is described with KEL_ConnectEx. A message for which there is no memory is lost.
 *  9. Each connect reads the settings again from Brel.ini in the working directory, if there is one, and
 *     KELHANDLER_RELEASE_BLOCKS from the environment, which nobody may change meanwhile.
 */
#ifndef KELHANDLER_H
#define KELHANDLER_H

#include <stdint.h>

#ifdef __GNUC__
#define KEL_API __attribute__((visibility("default")))
#else
#define KEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Success. */
#define KEL_OK 0u
/** The connection is not open, or connecting or disconnecting failed. */
#define KEL_E_CONNECTION 7u
/** An asynchronous task could not be sent. */
#define KEL_E_ASYNC_TASK 10u
/** A synchronous task could not be sent, or no answer came in time. */
#define KEL_E_TASK 12u

/** KEL_ValidateVersion: the file belongs to the device's software generation. */
#define KEL_VERSION_VALID 1u
/** KEL_ValidateVersion: it does not, or that could not be found out. */
#define KEL_VERSION_INVALID 0u

/** The largest payload that every device takes, in bytes. */
#define KEL_MAX_TASK_PAYLOAD 8192u

/** Connections that may be open at once. */
#define KEL_MAX_CONNECTIONS 15u

/** Interface version of a library: five numbers, most significant first. */
typedef struct VersionArray {
  uint32_t number[5];
} VersionArray;

/**
 * Receives broadcasts of one connection, on a thread of the library that serves nothing else.
 *
 * TUIname      The task's name in the task table, or "UNKNOWN_TASK"; not null. A block that is the client's from now
 *              on.
 * isRef        1 if the payload is REF, 0 if it is VAL.
 * payload      A copy of the payload that is the client's from now on; not null, also for a size of 0.
 * payloadSize  Its size in bytes.
 * seqTUI       A word of the device's own, handed on as it came.
 */
typedef void (*KEL_BroadcastCallback)(char* TUIname, uint32_t isRef, void* payload, uint32_t payloadSize,
                                      uint32_t seqTUI);

/**
 * Receives the one answer to an asynchronous task, on a thread of the library.
 *
 * errorCode     0, or 2 if no answer came within RxWaitTimeout. Then data points to an empty record and dataSize is 0.
 * commandID     As given with the task.
 * sequenceByte  The sequence number of the task, as given out with the request.
 * isRef         1 if the answer is REF, 0 if it is VAL or there is none.
 * data          The payload, valid until the callback returns. Not null. The record of an error stays valid for good,
 *               but where ReleaseBlocks is set it is released when the callback has returned.
 * dataSize      Its size in bytes.
 * seqTUI        A word of the device's own, handed on as it came.
 */
typedef void (*KEL_AsyncCallback)(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t isRef,
                                  void* data, uint32_t dataSize, uint32_t seqTUI);

/**
 * Receives the messages of a stream, on a thread of the library that serves this stream only.
 *
 * As KEL_AsyncCallback, with these differences: sequenceByte is the task's sequence number plus 64 for a message and
 * plus 128 for the last one; streamEnd is 1 for the last message, else 0. A stream has no time-out. Messages that come
 * while the callback runs wait in a queue without a limit.
 */
typedef void (*KEL_StreamCallback)(uint32_t errorCode, uint32_t commandID, uint32_t sequenceByte, uint32_t streamEnd,
                                   uint32_t isRef, void* data, uint32_t dataSize, uint32_t seqTUI);

/** Receives changes of the control status. Its true form is the pipe library's: cast yours to this type. */
typedef void (*KEL_CtrlStatusCallback)(void);

/**
 * Starts the pipe library. To be called once, before anything else; the library does not insist on it.
 *
 * Returns the pipe library's answer.
 */
KEL_API uint32_t KEL_Init(void);

/**
 * Ends the pipe library. To be called last, with all connections closed.
 *
 * Returns the pipe library's answer.
 */
KEL_API uint32_t KEL_Finalize(void);

/** The interface version of this library: 4, 1, 0, 21, 0. Needs no other call before it. */
KEL_API VersionArray KEL_GetVersion(void);

/**
 * Opens a connection to the device. Same as KEL_ConnectEx with zeros for what that ignores; the same pointers may be
 * null.
 */
KEL_API uint32_t KEL_Connect(const char* TUIsFilePath, KEL_BroadcastCallback broadcastCallback, uint64_t* conn);

/**
 * Opens a connection to the device: reads the settings and the task table, loads the pipe library if no connection is
 * open yet, and obtains a socket from the device. Blocks until the device side has answered.
 *
 * TUIsFilePath       Task table to use instead of the built-in one. Null: the one that Brel.ini names, else
 *                    "KEL_ALLTASKS.csv" in the working directory, and if that cannot be opened the built-in one. A file
 *                    that opens replaces the built-in table whole; one that cannot be read through fails the connect.
 * broadcastCallback  Called for each broadcast until the connection is closed. Null: broadcasts are dropped.
 * conn               Gets the connection, a value that is not 0. Null is refused: nobody could close the connection.
 *
 * Returns KEL_OK, or KEL_E_CONNECTION with *conn untouched: also for a connection beyond KEL_MAX_CONNECTIONS. Each
 * connect opens a connection of its own, whatever is open already. A refused connect leaves nothing open, with one
 * exception: if the heap was exhausted, what had come up is not taken down, a link to the device among it. The process
 * may then have fewer connections. If not even the connection's own object could be made, nothing arrives on any
 * connection from then on, and a call under rule 5 from another thread never returns.
 */
KEL_API uint32_t KEL_ConnectEx(const char* TUIsFilePath, uint32_t ignored1, uint64_t ignored2,
                               KEL_BroadcastCallback broadcastCallback, uint32_t ignored3, uint64_t* conn);

/**
 * Closes a connection: gives the socket back, then ends the connection's threads. Waits without limit for a callback
 * that is running; afterwards no callback of this connection is called again. Tasks that are then still under way are
 * dropped, and their callbacks not called.
 *
 * Returns KEL_OK, or KEL_E_CONNECTION if the connection is not open or could not be closed. After the latter it may be
 * closed again; its callbacks may still be called, and nothing else of it should be used.
 */
KEL_API uint32_t KEL_Disconnect(uint64_t conn);

/**
 * Sends a task and waits for its answer. Same as KEL_SendReceiveKELEx with initialSeqTUI 0 and responseExpected 1; the
 * same pointers may be null.
 */
KEL_API uint32_t KEL_SendReceiveKEL(uint64_t conn, const char* taskName, uint32_t commandID, const void* inputBuffer,
                                    uint32_t inputBufferSize, void** expectedResultsTaskBuffer,
                                    uint32_t* expectedResultsTaskBufferSize, KEL_StreamCallback streamCallbackFunc);

/**
 * Sends a task and, if responseExpected says so, waits for its answer, RxWaitTimeout at most.
 *
 * taskName                       Name of the task in the task table; case counts. Null is an unknown name.
 * commandID                      A number of the client's own, given back in stream callbacks.
 * inputBuffer, inputBufferSize   The payload. Null or size 0: three zeros for a VAL task, nothing for a REF task.
 * initialSeqTUI                  Goes into the request's seqTUI word if the task needs no sequence number, that is,
 *                                with responseExpected 0 and no stream. Mind that such a task, when the device side
 *                                refuses it, ends the task that has number 0, with what KEL_SendReceiveAsyncKELEx says
 *                                of that.
 * responseExpected               0: do not wait. Anything else: wait for the answer.
 * resultTaskType, resultParam4   Not used, never written; may be null.
 * expectedResultsTaskBuffer      Gets the answer's payload in a block that is the client's, also for an empty payload.
 *                                *expectedResultsTaskBuffer is null if there is no answer. Written unless the
 *                                connection or the task is unknown, or the heap is exhausted. Null: the payload is
 *                                dropped.
 * expectedResultsTaskBufferSize  Gets its size, or 0. Written with it. Null: the size is not given out.
 * streamCallbackFunc             Not null: the task answers with a stream, whose messages go there; the answer that is
 *                                waited for is then the stream's opening.
 *
 * Returns
 *   KEL_OK            The task was sent, and answered if an answer was expected. What the answer says is not examined.
 *   KEL_E_CONNECTION  The connection is not open.
 *   KEL_E_TASK        The task's name is unknown, all 64 sequence numbers of the connection are taken, the device side
 *                     refused the request, or no answer came in time. A task that was not answered keeps its sequence
 *                     number until the connection is closed: after 64 of them no task can be sent.
 */
KEL_API uint32_t KEL_SendReceiveKELEx(uint64_t conn, const char* taskName, uint32_t commandID, const void* inputBuffer,
                                      uint32_t inputBufferSize, uint32_t initialSeqTUI, uint32_t responseExpected,
                                      uint32_t* resultTaskType, void** expectedResultsTaskBuffer,
                                      uint32_t* expectedResultsTaskBufferSize, uint32_t* resultParam4,
                                      KEL_StreamCallback streamCallbackFunc);

/**
 * Sends a task and returns at once. Same as KEL_SendReceiveAsyncKELEx with initialSeqTUI 0 and responseExpected 1; the
 * same pointers may be null.
 */
KEL_API uint32_t KEL_SendReceiveAsyncKEL(uint64_t conn, const char* taskName, uint32_t commandID,
                                         const void* inputBuffer, uint32_t inputBufferSize, uint32_t* seqNum,
                                         KEL_AsyncCallback callbackFunc, KEL_StreamCallback streamCallbackFunc);

/**
 * Sends a task and returns at once; the answer goes to callbackFunc.
 *
 * taskName to responseExpected  As in KEL_SendReceiveKELEx.
 * seqNum                        Gets the task's sequence number, 0 to 63. Not written if the task needs none: mind that
 *                               such a task, when the device side refuses it, ends the task whose number *seqNum holds.
 *                               If that one is still under way, its connection may call no callback any more, and its
 *                               KEL_Disconnect not return. Null: the number is not given out, and a refusal ends no
 *                               other task.
 * callbackFunc                  Called once with the answer, or with error 2 when none came in time; not at all if the
 *                               task needs no sequence number, the connection is closed before that, or another task's
 *                               refusal ends this one. May be null.
 * streamCallbackFunc            Not null: the task answers with a stream, whose messages go there. callbackFunc then
 *                               gets the stream's opening, for which there is no time-out.
 *
 * Returns KEL_OK, KEL_E_CONNECTION if the connection is not open, or KEL_E_ASYNC_TASK if the task could not be sent,
 * and then neither callback is called.
 */
KEL_API uint32_t KEL_SendReceiveAsyncKELEx(uint64_t conn, const char* taskName, uint32_t commandID,
                                           const void* inputBuffer, uint32_t inputBufferSize, uint32_t initialSeqTUI,
                                           uint32_t responseExpected, uint32_t* seqNum,
                                           KEL_AsyncCallback callbackFunc, KEL_StreamCallback streamCallbackFunc);

/**
 * Has the pipe library call `callback` when the control status changes. Whether it may be null is the pipe library's to
 * say. Returns its answer.
 */
KEL_API uint32_t KEL_RegisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback);

/** Takes that back; the same goes for null. Returns the pipe library's answer. */
KEL_API uint32_t KEL_UnregisterCtrlStatusUpdatesCB(KEL_CtrlStatusCallback callback);

/** The control status, as the pipe library numbers it. */
KEL_API uint32_t KEL_GetCtrlStatus(void);

/** Gives connection parameters to the pipe library, which says what they mean. Returns the pipe library's answer. */
KEL_API uint32_t KEL_SetConnParams(uint64_t params, uint32_t value);

/**
 * Asks whether a file belongs to the software generation that runs on the device. Fetches the generation's identifiers
 * from the device, and so blocks like a task. The comparison itself is a validator's that is not part of this library:
 * as it stands, every file passes that has a name, once the device has given its identifiers.
 *
 * fileName                Name of the file, with or without a path. Where it ends in a path separator, that is cut off.
 *                         Null counts as no name.
 * fileBuffer, fileLength  Its bytes and their number. Null is the validator's to judge.
 * userVersion             Points to 64 bits of the client's. Null is the validator's to judge.
 * versionsVectorsPath     Folder of the "*VersionsVector.txt" files to judge by. With null nothing is asked, and the
 *                         result is KEL_VERSION_INVALID.
 *
 * Returns KEL_VERSION_VALID, KEL_VERSION_INVALID, or KEL_E_CONNECTION. Mind that 0 is no success here.
 */
KEL_API uint32_t KEL_ValidateVersion(uint64_t conn, char* fileName, const void* fileBuffer, uint32_t fileLength,
                                     void* userVersion, const char* versionsVectorsPath);

#ifdef __cplusplus
}
#endif

#endif
