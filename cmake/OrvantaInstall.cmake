include(CMakePackageConfigHelpers)

install(TARGETS orvanta EXPORT OrvantaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/orvanta)
install(EXPORT OrvantaTargets NAMESPACE Orvanta:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)

# The GIO adapters are in the library when they were built: a static kit then links GIO too.
if(TARGET orvanta_platform_gio)
  set(ORVANTA_LINKS_GIO ON)
else()
  set(ORVANTA_LINKS_GIO OFF)
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/OrvantaConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)

# orvanta.pc: the prefix from the file's own folder (<prefix>/<libdir>/pkgconfig), so that the
# kit installed with `cmake --install --prefix` anywhere, or moved, is found where it lies. Its
# libraries are named one by one (not as required modules), so that --static asks for no link
# files of their own static dependencies, which distributions don't ship. libcurl is not among
# them: the kit loads it at its first request.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  # Folders fixed by the one who configured: the file names them as they are.
  set(ORVANTA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(ORVANTA_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(ORVANTA_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH _up "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
  string(REGEX REPLACE "/$" "" _up "${_up}")
  set(ORVANTA_PC_PREFIX "\${pcfiledir}/${_up}")
  set(ORVANTA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(ORVANTA_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
set(ORVANTA_PC_LIBS_PRIVATE "-lsqlite3")
foreach(_library IN LISTS PLIST_LIBRARIES)
  string(APPEND ORVANTA_PC_LIBS_PRIVATE " -l${_library}")
endforeach()
if(ORVANTA_LINKS_GIO)
  pkg_check_modules(ORVANTA_PC_GIO QUIET gio-2.0)
  foreach(_library IN LISTS ORVANTA_PC_GIO_LIBRARIES)
    string(APPEND ORVANTA_PC_LIBS_PRIVATE " -l${_library}")
  endforeach()
endif()
string(APPEND ORVANTA_PC_LIBS_PRIVATE " -pthread")
foreach(_library IN LISTS CMAKE_DL_LIBS)
  string(APPEND ORVANTA_PC_LIBS_PRIVATE " -l${_library}")
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/orvanta.pc.in ${CMAKE_CURRENT_BINARY_DIR}/orvanta.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orvanta.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
