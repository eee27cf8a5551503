# dygraphs, which draws curves in a browser: Debian's libjs-dygraphs. Sets Dygraphs_SCRIPT and
# Dygraphs_STYLE, the files.
find_file(Dygraphs_SCRIPT dygraph.min.js PATHS /usr/share/javascript/dygraphs NO_DEFAULT_PATH)
find_file(Dygraphs_STYLE dygraph.min.css PATHS /usr/share/javascript/dygraphs NO_DEFAULT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Dygraphs REQUIRED_VARS Dygraphs_SCRIPT Dygraphs_STYLE
   REASON_FAILURE_MESSAGE "install libjs-dygraphs")
mark_as_advanced(Dygraphs_SCRIPT Dygraphs_STYLE)
