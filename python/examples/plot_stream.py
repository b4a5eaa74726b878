# SPDX-License-Identifier: MIT
"""Plots a stream: python3 plot_stream.py PICTURE

Each message has three values: here the time is drawn between its number and when it came.
"""

from __future__ import annotations

import sys
import time

import kelhandler
import matplotlib  # type: ignore[import]  # has no types
import numpy

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402

with kelhandler.connect() as device:
    rows = []
    with device.stream("TASK_ID_APPLICATION_DEBUG_STREAMER", values=(500, 2, 0)) as stream:
        begin = time.monotonic()
        for message in stream:
            rows.append((message.values[0], time.monotonic() - begin))

numbers, times = numpy.array(rows).T
pyplot.rcParams["svg.hashsalt"] = "kelhandler"
figure, axes = pyplot.subplots(figsize=(7, 3.2), layout="constrained")
axes.plot(numbers, (times - 0.002 * numbers) * 1000, linewidth=0.8)
axes.set_xlabel("message")
axes.set_ylabel("later than planned [ms]")
axes.set_title("A stream of 500 messages, one every 2 ms")
figure.savefig(sys.argv[1], metadata={"Date": None})
print(f"{len(rows)} messages are drawn in {sys.argv[1]}")
