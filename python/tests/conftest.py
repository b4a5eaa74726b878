# SPDX-License-Identifier: MIT
pytest_plugins = ["kelhandler.pytest_plugin"]
