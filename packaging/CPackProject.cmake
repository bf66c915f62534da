# Read by cpack before each generator, after the command line: a revision given there counts everywhere.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "truststore-update-client (= ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
