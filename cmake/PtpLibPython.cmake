# The package `ptplib` for Python: an extension made with pybind11, and modules in Python.
# PTPLIB_ALL makes it an error if a package of Debian is missing.

# With the interpreter that Debian's packages of modules belong to.
set(PTPLIB_PYTHON /usr/bin/python3 CACHE FILEPATH "The interpreter of the package ptplib")
# Where Debian's interpreter looks, in the prefix /usr.
set(PTPLIB_PYTHON_DIR "lib/python3/dist-packages" CACHE PATH "Where the package is installed")

# ptplib_python(DIR dir): the target `python`, which builds the package in PTPLIB_PYTHON_PACKAGES;
# and PTPLIB_HAS_PYTHON, whether it can be built.
function(ptplib_python)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "DIR" "")
   set(PTPLIB_HAS_PYTHON OFF PARENT_SCOPE)
   if(PTPLIB_SANITIZE)
      return()  # the interpreter has no runtime of the sanitizer
   endif()
   find_path(PTPLIB_PYBIND11_INCLUDE pybind11/pybind11.h)
   mark_as_advanced(PTPLIB_PYBIND11_INCLUDE)
   execute_process(COMMAND "${PTPLIB_PYTHON}" -c
      "import sysconfig as s; print(s.get_path('include'), s.get_config_var('EXT_SUFFIX'), sep=';')"
      OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
   list(LENGTH found count)
   if(NOT count EQUAL 2 OR NOT PTPLIB_PYBIND11_INCLUDE)
      ptplib_missing("the Python package" pybind11-dev)
      return()
   endif()
   list(GET found 0 include)
   list(GET found 1 suffix)
   if(NOT EXISTS "${include}/Python.h")
      ptplib_missing("the Python package" python3-dev)
      return()
   endif()

   set(packages "${CMAKE_BINARY_DIR}/python")
   set(package "${packages}/ptplib")
   set(PTPLIB_PYTHON_PACKAGES "${packages}" PARENT_SCOPE)
   ptplib_sources(sources ${arg_DIR}/core)
   add_library(_ptplib MODULE ${sources})
   target_include_directories(_ptplib SYSTEM PRIVATE "${include}" "${PTPLIB_PYBIND11_INCLUDE}")
   find_package(nlohmann_json REQUIRED)
   ptplib_link(_ptplib PRIVATE Holt PtpLib PtpPlatform Kiv nlohmann_json::nlohmann_json)
   ptplib_hides_its_place(_ptplib)
   # Installed below a prefix's lib, or beside copies of the libraries in a wheel.
   set_target_properties(_ptplib PROPERTIES PREFIX "" SUFFIX "${suffix}"
      LIBRARY_OUTPUT_DIRECTORY "${package}" CXX_VISIBILITY_PRESET hidden
      BUILD_RPATH "$ORIGIN;${CMAKE_LIBRARY_OUTPUT_DIRECTORY}"
      INSTALL_RPATH "$ORIGIN;$ORIGIN/../../../../${CMAKE_INSTALL_LIBDIR}")
   # All four, so that copies of them beside the extension are found whatever they say themselves.
   target_link_options(_ptplib PRIVATE LINKER:--no-as-needed)

   file(GLOB_RECURSE modules CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/${arg_DIR}"
      "${PROJECT_SOURCE_DIR}/${arg_DIR}/ptplib/*.py" "${PROJECT_SOURCE_DIR}/${arg_DIR}/ptplib/*.pyi"
      "${PROJECT_SOURCE_DIR}/${arg_DIR}/ptplib/py.typed")
   set(copies)
   foreach(module IN LISTS modules)
      add_custom_command(OUTPUT "${packages}/${module}"
         COMMAND "${CMAKE_COMMAND}" -E copy "${PROJECT_SOURCE_DIR}/${arg_DIR}/${module}"
            "${packages}/${module}"
         DEPENDS "${PROJECT_SOURCE_DIR}/${arg_DIR}/${module}" VERBATIM)
      list(APPEND copies "${packages}/${module}")
   endforeach()
   file(GLOB kivs CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/Acl/*.kiv"
      "${PROJECT_SOURCE_DIR}/Bridging/*.kiv" "${PROJECT_SOURCE_DIR}/Brim/*.kiv"
      "${PROJECT_SOURCE_DIR}/Dorn/*.kiv" "${PROJECT_SOURCE_DIR}/PtpPlatform/*.kiv"
      "${PROJECT_SOURCE_DIR}/PtpLib/*.kiv")
   add_custom_command(OUTPUT "${package}/_docs.json"
      COMMAND "${PTPLIB_PYTHON}" -B -I "${package}/_docs.py" "${package}/_docs.json" ${kivs}
      DEPENDS ${kivs} "${package}/_docs.py" VERBATIM)
   add_custom_command(OUTPUT "${package}/types/__init__.pyi"
      COMMAND "${CMAKE_COMMAND}" -E env "PYTHONPATH=${packages}"
         "LD_LIBRARY_PATH=${CMAKE_LIBRARY_OUTPUT_DIRECTORY}"
         "${PTPLIB_PYTHON}" -B -m ptplib.stubs "${package}/types"
      DEPENDS _ptplib ${copies} "${package}/_docs.json" VERBATIM)
   add_custom_target(python ALL DEPENDS _ptplib ${copies} "${package}/types/__init__.pyi")

   install(TARGETS _ptplib LIBRARY DESTINATION "${PTPLIB_PYTHON_DIR}/ptplib")
   install(DIRECTORY "${package}/" DESTINATION "${PTPLIB_PYTHON_DIR}/ptplib"
      FILES_MATCHING PATTERN "*.py" PATTERN "*.pyi" PATTERN "py.typed" PATTERN "_docs.json"
      PATTERN "__pycache__" EXCLUDE)
   set(PTPLIB_HAS_PYTHON ON PARENT_SCOPE)
endfunction()
