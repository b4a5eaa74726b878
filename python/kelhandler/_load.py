# SPDX-License-Identifier: MIT
"""Where a wheel's libraries are found: to be imported before ``_native``.

A wheel brings the library along, and has nobody who tells the loader where. A pipe library that the system has goes
before the stand-in of ``kelhandler[simulator]``. Elsewhere the loader finds all by itself.
"""

from __future__ import annotations

import ctypes
import importlib.util
import pathlib

_library = pathlib.Path(__file__).with_name("libKELHandler.so.4")

if _library.exists():
    try:
        ctypes.CDLL("libSluiceHub.so")
    except OSError:
        simulator = importlib.util.find_spec("kelhandler_simulator")
        if simulator is None or simulator.origin is None:
            raise ImportError("there is no pipe library; `pip install kelhandler[simulator]` brings a stand-in") from None
        ctypes.CDLL(str(pathlib.Path(simulator.origin).with_name("libSluiceHub.so")))
    ctypes.CDLL(str(_library))
