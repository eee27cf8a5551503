# ptplib_program(name DIR dir [WITHOUT subdirectory] [SOURCES source...] [LINK library...]
#    [PACKAGES package...] [PRIVATE_TO_THE_BUILD])
# A program: main.cpp in the directory, and the library <name>_objects with everything else there,
# so that tests can link the code of the program. WITHOUT: except what is below there. SOURCES:
# additional sources. It is installed unless it is private.
function(ptplib_program name)
   cmake_parse_arguments(PARSE_ARGV 1 arg "PRIVATE_TO_THE_BUILD" "DIR;WITHOUT" "SOURCES;LINK;PACKAGES")
   set(main "${PROJECT_SOURCE_DIR}/${arg_DIR}/main.cpp")
   ptplib_sources(sources ${arg_DIR})
   if(arg_WITHOUT)
      list(FILTER sources EXCLUDE REGEX "/${arg_DIR}/${arg_WITHOUT}/")
   endif()
   set(libraries ${arg_LINK})
   foreach(package IN LISTS arg_PACKAGES)
      find_package(${package} REQUIRED)
      list(APPEND libraries ${package}::${package})
   endforeach()

   set(objects ${sources} ${arg_SOURCES})
   list(REMOVE_ITEM objects "${main}")
   if(objects)
      add_library(${name}_objects STATIC ${objects})
      ptplib_link(${name}_objects PUBLIC ${libraries})
      ptplib_precompiled(${name}_objects)
      ptplib_hides_its_place(${name}_objects)
      ptplib_not_hot(${name}_objects)
      ptplib_compiled_together(${name}_objects)
      list(PREPEND libraries ${name}_objects)
   endif()
   if(main IN_LIST sources)
      add_executable(${name} "${main}")
      ptplib_link(${name} PRIVATE ${libraries})
      ptplib_hides_its_place(${name})
      ptplib_not_hot(${name})
      if(NOT arg_PRIVATE_TO_THE_BUILD)
         set_property(GLOBAL APPEND PROPERTY PTPLIB_INSTALLED_PROGRAMS ${name})
      endif()
   endif()
endfunction()

# ptplib_not_hot(target): the code of programs, and of Holt, which they are built on, waits for
# others. What must be fast is in the other libraries. Call it last: the precompiled headers of the
# libraries fit these options, too.
function(ptplib_not_hot target)
   target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# ptplib_curses(name): links what a program's objects need to draw on a terminal. Programs that use
# other parts of these objects are not linked with it.
function(ptplib_curses name)
   set(CURSES_NEED_NCURSES TRUE)
   set(CURSES_NEED_WIDE TRUE)
   find_package(Curses REQUIRED)
   list(JOIN CURSES_LIBRARIES "," libraries)
   target_include_directories(${name}_objects PUBLIC ${CURSES_INCLUDE_DIRS})
   target_link_libraries(${name}_objects PUBLIC
      "-Wl,--push-state,--as-needed,${libraries},--pop-state")
endfunction()

# ptplib_missing(program package): a program is left out since a package of Debian is missing.
function(ptplib_missing program package)
   if(PTPLIB_ALL)
      message(FATAL_ERROR "${program} needs Debian's ${package}; `./dev test --all` installs it")
   endif()
   message(STATUS "Without ${program}: it needs Debian's ${package}")
endfunction()

# ptplib_net_snmp(out): sets `out` to whether net-snmp is there for subagents; then PtpLibNetSnmp is
# a target to link.
function(ptplib_net_snmp out)
   find_path(PTPLIB_NET_SNMP_INCLUDE net-snmp/agent/net-snmp-agent-includes.h)
   find_library(PTPLIB_NET_SNMP_AGENT netsnmpagent)
   find_library(PTPLIB_NET_SNMP netsnmp)
   set(${out} OFF PARENT_SCOPE)
   if(NOT PTPLIB_NET_SNMP_INCLUDE OR NOT PTPLIB_NET_SNMP_AGENT OR NOT PTPLIB_NET_SNMP)
      ptplib_missing(ptpsnmp libsnmp-dev)
      return()
   endif()
   add_library(PtpLibNetSnmp INTERFACE)
   target_include_directories(PtpLibNetSnmp SYSTEM INTERFACE "${PTPLIB_NET_SNMP_INCLUDE}")
   target_link_libraries(PtpLibNetSnmp INTERFACE "${PTPLIB_NET_SNMP_AGENT}" "${PTPLIB_NET_SNMP}")
   set(${out} ON PARENT_SCOPE)
endfunction()

# ptplib_nats(out): sets `out` to whether the client library of NATS is there; then PtpLibNats is a
# target to link.
function(ptplib_nats out)
   find_path(PTPLIB_NATS_INCLUDE nats/nats.h)
   find_library(PTPLIB_NATS_LIBRARY nats)
   set(${out} OFF PARENT_SCOPE)
   if(NOT PTPLIB_NATS_INCLUDE OR NOT PTPLIB_NATS_LIBRARY)
      ptplib_missing("the library Fleet" libnats-dev)
      return()
   endif()
   add_library(PtpLibNats INTERFACE)
   target_include_directories(PtpLibNats SYSTEM INTERFACE "${PTPLIB_NATS_INCLUDE}")
   target_link_libraries(PtpLibNats INTERFACE "${PTPLIB_NATS_LIBRARY}")
   set(${out} ON PARENT_SCOPE)
endfunction()

# ptplib_examples(DIR dir LINK library...): one program per source file, run as a test.
function(ptplib_examples)
   cmake_parse_arguments(PARSE_ARGV 0 arg "" "DIR" "LINK")
   ptplib_sources(sources ${arg_DIR})
   foreach(source IN LISTS sources)
      cmake_path(GET source STEM stem)
      set(name example_${stem})
      add_executable(${name} "${source}")
      ptplib_link(${name} PRIVATE ${arg_LINK})
      if(PTPLIB_TESTS)
         add_test(NAME ${name} COMMAND ${name})
         set_tests_properties(${name} PROPERTIES TIMEOUT 60)
      endif()
   endforeach()
endfunction()
