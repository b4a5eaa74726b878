// SPDX-License-Identifier: MIT
#include "Page.h"

extern "C" const char kelconsole_html[], kelconsole_html_end[];
extern "C" const char kelconsole_script[], kelconsole_script_end[];
extern "C" const char kelconsole_style[], kelconsole_style_end[];

namespace kel::console {
namespace {

std::string_view between(const char* begin, const char* end) { return {begin, static_cast<std::size_t>(end - begin)}; }

}  // namespace

std::vector<PageFile> pageFiles() {
  return {{"/", "text/html; charset=utf-8", between(kelconsole_html, kelconsole_html_end)},
          {"/console.js", "text/javascript; charset=utf-8", between(kelconsole_script, kelconsole_script_end)},
          {"/console.css", "text/css; charset=utf-8", between(kelconsole_style, kelconsole_style_end)}};
}

}  // namespace kel::console
