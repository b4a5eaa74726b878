# SPDX-License-Identifier: MIT
"""What calls raise, and the words that the package uses."""

from __future__ import annotations

import enum
from typing import ClassVar


class Cause(enum.StrEnum):
    """Why a call failed."""

    UNKNOWN_TASK = "unknown-task"
    WRONG_FORM = "wrong-form"
    REFUSED = "refused"
    NO_ANSWER = "no-answer"
    LINK_LOST = "link-lost"
    NO_NUMBER = "no-number"
    NOT_CONNECTED = "not-connected"
    CLOSED = "closed"
    CANCELLED = "cancelled"
    BUSY = "busy"
    RESERVED = "reserved"


class Error(Exception):
    """A call failed. Only the classes below are raised.

    ``subject``: what the call was about, as a rule the task's name.
    ``code``: what the library returned, one of the ``KEL_E_*`` codes of KELHandler.h; 0 if it was not asked.
    """

    # There is no __init__: the module makes them where no code of Python's may run.
    cause: ClassVar[Cause]
    subject: str = ""
    code: int = 0


class UnknownTask(Error):
    """The task table in force does not have the name. Nothing was sent."""

    cause = Cause.UNKNOWN_TASK


class WrongForm(Error, ValueError):
    """The payload does not fit the task's form, or an answer not what was to be read from it."""

    cause = Cause.WRONG_FORM


class Refused(Error):
    """The device side did not take the request, or the library could not send it."""

    cause = Cause.REFUSED


class NoAnswer(Error, TimeoutError):
    """The request was sent, and no answer came until the call's deadline."""

    cause = Cause.NO_ANSWER


class LinkLost(Error, ConnectionError):
    """The link went away, with the request under way or still waiting to be sent."""

    cause = Cause.LINK_LOST


class NoNumber(Error):
    """As many calls as the connection takes are under way, and so many wait as may."""

    cause = Cause.NO_NUMBER


class NotConnected(Error, ConnectionError):
    """There is no connection: connecting failed, or has not come to its end."""

    cause = Cause.NOT_CONNECTED


class Closed(Error):
    """The device was closed on this side, or connecting failed for good."""

    cause = Cause.CLOSED


class Cancelled(Error):
    """The call was given up by ``Call.cancel()``."""

    cause = Cause.CANCELLED


class Busy(Error):
    """A device behind a network has as many calls under way as it takes. It got nothing."""

    cause = Cause.BUSY


class Reserved(Error):
    """A device behind a network is reserved for somebody else. It got nothing."""

    cause = Cause.RESERVED


CLASSES = (
    UnknownTask,
    WrongForm,
    Refused,
    NoAnswer,
    LinkLost,
    NoNumber,
    NotConnected,
    Closed,
    Cancelled,
    Busy,
    Reserved,
)
"""By the numbers that the client layer gives to causes, from 1."""
