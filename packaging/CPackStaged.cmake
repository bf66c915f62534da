# Run by cpack between staging and packaging: adds the bill of materials, which names every file as it is shipped, and
# gives each file the time of the changelog's last entry.
cmake_policy(SET CMP0012 NEW)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  message(FATAL_ERROR "SOURCE_DATE_EPOCH is not set: packaging/make-packages sets it")
endif()
# What objcopy and strip leave of compilers' names and notes is of no use to a unit.
file(GLOB programs ${CPACK_TEMPORARY_DIRECTORY}/*/usr/sbin/* ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/ts*
     ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/truststore-update-client/*.so)
foreach(program IN LISTS programs)
  if(NOT IS_SYMLINK ${program})
    execute_process(COMMAND ${CPACK_TSUC_STRIP} --remove-section=.comment --remove-section=.note ${program}
                    COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
execute_process(
  COMMAND ${CPACK_TSUC_SOURCE_DIR}/packaging/sbom.py
    --stage ${CPACK_TEMPORARY_DIRECTORY} --version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}
    --architecture ${CPACK_TSUC_ARCHITECTURE} --compiler ${CPACK_TSUC_COMPILER} --sysroot=${CPACK_TSUC_SYSROOT}
    --output ${CPACK_PACKAGE_DIRECTORY}/truststore-update-client.spdx.json
  COMMAND_ERROR_IS_FATAL ANY)
file(COPY ${CPACK_PACKAGE_DIRECTORY}/truststore-update-client.spdx.json
     DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/daemon/usr/share/doc/truststore-update-client)
execute_process(
  COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
# Next comes dpkg-shlibdeps: which package a library of the sysroot is of, the sysroot knows (cmake/arm64-sysroot.sh).
if(CPACK_TSUC_SYSROOT)
  set(ENV{DPKG_ADMINDIR} ${CPACK_TSUC_SYSROOT}/var/lib/dpkg)
  set(ENV{DEB_HOST_ARCH} ${CPACK_TSUC_ARCHITECTURE})
endif()
