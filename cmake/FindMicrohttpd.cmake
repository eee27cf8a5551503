# Finds libmicrohttpd, for which neither upstream nor Debian has a package file for CMake:
# Microhttpd::Microhttpd.
find_path(MICROHTTPD_INCLUDE_DIR microhttpd.h)
find_library(MICROHTTPD_LIBRARY microhttpd)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Microhttpd
   REASON_FAILURE_MESSAGE "Debian's package is libmicrohttpd-dev"
   REQUIRED_VARS MICROHTTPD_LIBRARY MICROHTTPD_INCLUDE_DIR)
if(Microhttpd_FOUND AND NOT TARGET Microhttpd::Microhttpd)
   add_library(Microhttpd::Microhttpd UNKNOWN IMPORTED)
   set_target_properties(Microhttpd::Microhttpd PROPERTIES
      IMPORTED_LOCATION "${MICROHTTPD_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${MICROHTTPD_INCLUDE_DIR}")
endif()
mark_as_advanced(MICROHTTPD_INCLUDE_DIR MICROHTTPD_LIBRARY)
