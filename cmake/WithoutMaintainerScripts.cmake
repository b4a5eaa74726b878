# SPDX-License-Identifier: MIT
# CPack has its packages of libraries call ldconfig from scripts. Their trigger does that, once for all packages of an
# installation, so that the scripts go.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(package MATCHES "\\.deb$")
    set(unpacked "${CPACK_TEMPORARY_DIRECTORY}/unpacked")
    execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${unpacked}" COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE "${unpacked}/DEBIAN/postinst" "${unpacked}/DEBIAN/postrm")
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build "${unpacked}" "${package}"
                    COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE "${unpacked}")
  endif()
endforeach()
