/* SPDX-License-Identifier: MIT */
// The built-in files, each with a zero byte behind it that does not count.
        .macro  resource name, file
        .hidden \name
        .globl  \name
\name:
        .incbin "\file"
        .hidden \name\()_end
        .globl  \name\()_end
\name\()_end:
        .byte   0
        .endm

        .section .rodata
        resource kel_task_table, KEL_TASK_TABLE
        resource kel_versions_vector, KEL_VERSIONS_VECTOR

        .section .note.GNU-stack, "", %progbits
