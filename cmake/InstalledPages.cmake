# SPDX-License-Identifier: MIT
# Where pages are installed there are no sources: a link to one of them becomes its text. `documents` is where they lie.
set(sources "(run|\\.clang|include|src|simulator|tools|tests|bench|fuzz|cmake|packaging|docs/tools)")
file(GLOB pages "${documents}/*.md" "${documents}/docs/*.md")
foreach(page IN LISTS pages)
  file(READ "${page}" text)
  string(REGEX REPLACE "\\[([^]]+)\\]\\((\\.\\./)?${sources}[^)]*\\)" "\\1" text "${text}")
  file(WRITE "${page}" "${text}")
endforeach()
