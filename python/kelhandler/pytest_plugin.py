# SPDX-License-Identifier: MIT
"""The pytest plugin, which an installed package has by itself.

``kel_device`` is a device connected to the stand-in, fresh for each test and closed behind it::

    @pytest.mark.kel_scenario({"rules": [{"task": "MY_TASK", "delay": 200}]}, timeout=1.0)
    def test_a_late_answer(kel_device: kelhandler.Device) -> None: ...

The marker takes a scenario and the keyword arguments of ``kelhandler.connect``. ``kel_stand_in`` is the device's side;
with it alone the scenario is in force, and nothing is connected. With ``--kel-captures FOLDER`` each failed test leaves a
capture of what passed.
"""

from __future__ import annotations

import pathlib
import re
from collections.abc import Generator, Iterator
from typing import Any

import kelhandler
import kelhandler.testing
import pytest

_captures = pytest.StashKey[pathlib.Path]()
_beginning = pytest.StashKey[int]()
_failed = pytest.StashKey[bool]()
_kept = pytest.StashKey[list[pathlib.Path]]()


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.getgroup("kelhandler").addoption(
        "--kel-captures", metavar="FOLDER", type=pathlib.Path, help="keep a capture of each failed test"
    )


def pytest_configure(config: pytest.Config) -> None:
    config.stash[_kept] = list[pathlib.Path]()
    config.addinivalue_line(
        "markers", "kel_scenario(scenario, **options): the stand-in's scenario, and what kel_device is connected with"
    )


@pytest.fixture(scope="session")
def _kel_capture(pytestconfig: pytest.Config) -> pathlib.Path | None:
    """The capture of the whole run."""
    folder: pathlib.Path | None = pytestconfig.getoption("--kel-captures")
    if folder is None:
        return None
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / "all.pcapng"
    return path if kelhandler.testing.start_capture(path) else None


@pytest.fixture
def kel_stand_in(
    request: pytest.FixtureRequest, _kel_capture: pathlib.Path | None
) -> Iterator[kelhandler.testing.StandIn]:
    """The stand-in with the test's scenario."""
    marker = request.node.get_closest_marker("kel_scenario")
    if _kel_capture:
        request.node.stash[_captures] = _kel_capture
        request.node.stash[_beginning] = _kel_capture.stat().st_size
    with kelhandler.testing.stand_in(marker.args[0] if marker and marker.args else None) as stand_in:
        yield stand_in


@pytest.fixture
def kel_device(
    request: pytest.FixtureRequest, kel_stand_in: kelhandler.testing.StandIn
) -> Iterator[kelhandler.Device]:
    """A device connected to it."""
    marker = request.node.get_closest_marker("kel_scenario")
    options: dict[str, Any] = marker.kwargs if marker else {}
    with kelhandler.connect(**options) as device:
        yield device


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]  # pluggy has no types
def pytest_runtest_makereport(item: pytest.Item) -> Generator[None, Any, None]:
    outcome = yield
    report = outcome.get_result()
    item.stash[_failed] = item.stash.get(_failed, False) or report.failed
    # Behind the fixtures all connections are closed, and so the capture is written.
    if report.when != "teardown" or not item.stash[_failed] or _captures not in item.stash:
        return
    path = item.stash[_captures]
    name = re.sub(r"[^\w.-]+", "_", item.name)
    kept = path.with_name(f"{name}.pcapng")
    kept.write_bytes(kelhandler.testing.capture_slice(path.read_bytes(), item.stash[_beginning]))
    item.config.stash[_kept].append(kept)


def pytest_terminal_summary(terminalreporter: Any, config: pytest.Config) -> None:
    for path in config.stash[_kept]:
        terminalreporter.write_line(f"capture: {path}")
