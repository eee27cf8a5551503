# What `cmake --install` installs, and where. Headers go to a separate directory below include/,
# since their top directories have short names.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(PTPLIB_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/ptplib")
set(PTPLIB_INSTALL_KIVDIR "${CMAKE_INSTALL_DATADIR}/ptplib/kiv")
set(PTPLIB_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/PtpLib")

# Installed programs and libraries find the shared objects relative to their own location, wherever
# the prefix is.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" "$ORIGIN")

function(ptplib_install)
   get_property(libraries GLOBAL PROPERTY PTPLIB_INSTALLED_LIBRARIES)
   get_property(dirs GLOBAL PROPERTY PTPLIB_INSTALLED_DIRS)
   get_property(internal GLOBAL PROPERTY PTPLIB_INTERNAL_DIRS)
   get_property(programs GLOBAL PROPERTY PTPLIB_INSTALLED_PROGRAMS)
   if(NOT libraries)
      return()
   endif()

   # kivc is exported too: KivcModule.cmake runs it for a user's own modules.
   set(exported ${libraries})
   if(kivc IN_LIST programs)
      list(APPEND exported kivc)
      list(REMOVE_ITEM programs kivc)
   endif()
   # Builds only what `cmake --install` needs.
   add_custom_target(installed DEPENDS ${exported} ${programs})
   if(TARGET python)
      add_dependencies(installed python)
   endif()
   # A package of its own: without it, the others are complete.
   list(REMOVE_ITEM exported Fleet)
   if(Fleet IN_LIST libraries)
      install(TARGETS Fleet EXPORT PtpLibFleetTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
      install(EXPORT PtpLibFleetTargets NAMESPACE PtpLib::
         DESTINATION "${PTPLIB_INSTALL_CMAKEDIR}")
   endif()
   install(TARGETS ${exported} EXPORT PtpLibTargets
      RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
   if(programs)
      install(TARGETS ${programs} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
   endif()
   foreach(program IN LISTS programs)
      set(completion "${PROJECT_SOURCE_DIR}/tools/${program}/${program}.bash")
      if(EXISTS "${completion}")
         install(FILES "${completion}"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME ${program})
      endif()
   endforeach()
   foreach(program IN LISTS programs)
      set(service "${PROJECT_SOURCE_DIR}/tools/${program}/${program}.service")
      if(EXISTS "${service}")
         # Where systemd looks, whatever the library directory is called.
         install(FILES "${service}" DESTINATION lib/systemd/system)
      endif()
      set(socket "${PROJECT_SOURCE_DIR}/tools/${program}/${program}.socket")
      if(EXISTS "${socket}")
         install(FILES "${socket}" DESTINATION lib/systemd/system)
      endif()
   endforeach()
   if(ptpexport IN_LIST programs)
      install(FILES "${PROJECT_SOURCE_DIR}/tools/ptpexport/Metrics/ptp.rules.yml"
         DESTINATION "${CMAKE_INSTALL_DATADIR}/ptpexport")
   endif()
   foreach(program IN LISTS programs ITEMS kivc)
      file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/${program}.1"
         "${PROJECT_SOURCE_DIR}/docs/man/${program}-*.1")
      install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
   endforeach()
   install(EXPORT PtpLibTargets NAMESPACE PtpLib:: DESTINATION "${PTPLIB_INSTALL_CMAKEDIR}")

   foreach(library IN LISTS libraries)
      # The list of generated headers exists when the build is installed, but not before.
      get_target_property(lists ${library} KIVC_HEADER_LISTS)
      foreach(list IN LISTS lists)
         if(list)
            install(CODE "
               file(STRINGS \"${list}\" headers)
               foreach(header IN LISTS headers)
                  cmake_path(GET header PARENT_PATH dir)
                  file(INSTALL \"${KIVC_GENERATED_DIR}/\${header}\" DESTINATION
                     \"\${CMAKE_INSTALL_PREFIX}/${PTPLIB_INSTALL_INCLUDEDIR}/\${dir}\")
               endforeach()")
         endif()
      endforeach()
   endforeach()
   foreach(dir IN LISTS dirs)
      ptplib_headers(headers ${dir})
      foreach(header IN LISTS headers)
         cmake_path(RELATIVE_PATH header BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
         cmake_path(GET header PARENT_PATH folder)
         if(NOT folder IN_LIST internal)
            install(FILES "${header}" DESTINATION "${PTPLIB_INSTALL_INCLUDEDIR}/${folder}")
         endif()
      endforeach()
      file(GLOB kivs CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/*.kiv")
      install(FILES ${kivs} DESTINATION "${PTPLIB_INSTALL_KIVDIR}/${dir}")
   endforeach()

   if(Holt IN_LIST libraries)
      # Where libyang and others look for modules.
      install(FILES "${PROJECT_SOURCE_DIR}/Holt/Openconfig/ptplib-openconfig-ptp.yang"
         DESTINATION "${CMAKE_INSTALL_DATADIR}/yang/modules/ptplib")
   endif()

   configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/PtpLibConfig.cmake.in"
      "${CMAKE_BINARY_DIR}/PtpLibConfig.cmake"
      INSTALL_DESTINATION "${PTPLIB_INSTALL_CMAKEDIR}" PATH_VARS PTPLIB_INSTALL_KIVDIR)
   write_basic_package_version_file("${CMAKE_BINARY_DIR}/PtpLibConfigVersion.cmake"
      COMPATIBILITY SameMinorVersion)
   install(FILES "${CMAKE_BINARY_DIR}/PtpLibConfig.cmake"
                 "${CMAKE_BINARY_DIR}/PtpLibConfigVersion.cmake"
      DESTINATION "${PTPLIB_INSTALL_CMAKEDIR}")
   install(FILES "${PROJECT_SOURCE_DIR}/cmake/KivcModule.cmake"
      DESTINATION "${PTPLIB_INSTALL_CMAKEDIR}" OPTIONAL)

   file(RELATIVE_PATH PTPLIB_PREFIX_FROM_PC
      "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
   string(REGEX REPLACE "/$" "" PTPLIB_PREFIX_FROM_PC "${PTPLIB_PREFIX_FROM_PC}")
   # Makes a program find the libraries where they are installed, unless the loader looks there
   # anyway.
   set(PTPLIB_PC_RPATH "-Wl,-rpath,\${libdir}")
   if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
      set(PTPLIB_PC_RPATH "")
   endif()
   foreach(library IN ITEMS PtpLib Holt Fleet)
      if(library IN_LIST libraries)
         string(TOLOWER ${library} name)
         configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${CMAKE_BINARY_DIR}/${name}.pc"
            @ONLY)
         install(FILES "${CMAKE_BINARY_DIR}/${name}.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
      endif()
   endforeach()
endfunction()
