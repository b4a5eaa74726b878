# SPDX-License-Identifier: MIT
# What a DLL or program for Windows takes along.
find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)

# for_microsofts_linker(LIBRARY DEFINITIONS): an import library in the form of Microsoft's linker, and the file with the
# names of the exports, from which other linkers' import libraries are made.
function(for_microsofts_linker library definitions)
  set(import_library "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${library}.lib")
  add_custom_command(TARGET ${library} POST_BUILD VERBATIM
    COMMAND "${LLVM_DLLTOOL}" -m i386:x86-64 -d "${CMAKE_CURRENT_SOURCE_DIR}/${definitions}" -D ${library}.dll
            -l "${import_library}")
  install(FILES "${import_library}" ${definitions} DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Development)
endfunction()

# separate_symbols(TARGET): a file with its symbols. What is shipped is stripped, and tells debuggers that file's name.
function(separate_symbols target)
  set(symbols "$<TARGET_FILE:${target}>.debug")
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND "${CMAKE_OBJCOPY}" --only-keep-debug "$<TARGET_FILE:${target}>" "${symbols}"
    COMMAND "${CMAKE_OBJCOPY}" --add-gnu-debuglink "${symbols}" "$<TARGET_FILE:${target}>")
  install(FILES "${symbols}" DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Symbols EXCLUDE_FROM_ALL)
endfunction()
