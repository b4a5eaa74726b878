# SPDX-License-Identifier: MIT
"""A communications device, controlled from Python.

    import kelhandler

    with kelhandler.connect() as device:
        print(device.task("TASK_ID_APPLICATION_DEBUG_VAL", values=(7, 8, 9)).values)
        for message in device.stream("TASK_ID_APPLICATION_DEBUG_STREAMER", values=(5, 10, 0)):
            print(message.values)

``kelhandler.aio`` has the same for asyncio, ``kelhandler.testing`` a device to test against, and
``python3 -m kelhandler`` both at the command line. Every call ends once, with an answer or an ``Error``, and in time.
"""

import atexit
import os

from kelhandler import _load as _load  # isort: split
from kelhandler import _native
from kelhandler._device import Device, Stream, Subscription, connect
from kelhandler._errors import (
    Busy,
    Cancelled,
    Cause,
    Closed,
    Error,
    LinkLost,
    NoAnswer,
    NoNumber,
    NotConnected,
    Refused,
    Reserved,
    UnknownTask,
    WrongForm,
)
from kelhandler._face import DeviceBase
from kelhandler._native import Broadcast, Call, Message, Payload
from kelhandler._options import Options
from kelhandler._types import End, Form, PayloadLike, State, StateChange, Statistics, Task, TaskTable, WhenFull

__all__ = [
    "Broadcast",
    "Busy",
    "Call",
    "Cancelled",
    "Cause",
    "Closed",
    "Device",
    "End",
    "Error",
    "Form",
    "LinkLost",
    "Message",
    "NoAnswer",
    "NoNumber",
    "NotConnected",
    "Options",
    "Payload",
    "PayloadLike",
    "Refused",
    "Reserved",
    "State",
    "StateChange",
    "Statistics",
    "Stream",
    "Subscription",
    "Task",
    "TaskTable",
    "UnknownTask",
    "WhenFull",
    "WrongForm",
    "connect",
    "library_version",
]

library_version = _native.version
"""The interface version of the library: 4, 1, 0, 21, 0."""



def _end() -> None:
    """Closes all devices, with which loops over their messages end."""
    DeviceBase._is_closing = True
    _native.end()


atexit.register(_end)
os.register_at_fork(after_in_child=_native.forked)
