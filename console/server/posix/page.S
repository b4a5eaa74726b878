/* SPDX-License-Identifier: MIT */
// The page, as it was bundled.
        .macro  resource name, file
        .hidden \name
        .globl  \name
\name:
        .incbin "\file"
        .hidden \name\()_end
        .globl  \name\()_end
\name\()_end:
        .endm

        .section .rodata
        resource kelconsole_html, KELCONSOLE_HTML
        resource kelconsole_script, KELCONSOLE_SCRIPT
        resource kelconsole_style, KELCONSOLE_STYLE

        .section .note.GNU-stack, "", %progbits
