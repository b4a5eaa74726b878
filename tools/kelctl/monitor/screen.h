/* SPDX-License-Identifier: MIT */
// The monitor's screen, as lines of text: what a picture looks like on a terminal of some size.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/record.h"
#include "output.h"

namespace kelctl::monitor {

enum class Order : std::uint8_t { byName, byRate, byCount };

/// What the person at the screen has chosen.
struct View {
  std::string device;  ///< what the heading calls it
  std::string task;    ///< that is sent; empty for none
  bool paused = false;
  Order order = Order::byName;
  std::string filter{};  ///< only sources with it in their name, whatever its case; empty for all
  bool editing = false;  ///< the filter is being typed
};

/// One of each at the least.
struct Size {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

/// As many lines as there are rows, none wider than `size.columns`. What finds no room is counted in the last of its
/// kind.
std::vector<std::string> linesOf(const Picture& picture, const View& view, Size size, const Output& output);

/// One line for where there is no terminal.
std::string lineOf(const Picture& picture);
/// The same for programs.
Json jsonOf(const Picture& picture);

}  // namespace kelctl::monitor
