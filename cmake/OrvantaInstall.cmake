include(CMakePackageConfigHelpers)

install(TARGETS orvanta EXPORT OrvantaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/orvanta)
install(EXPORT OrvantaTargets NAMESPACE Orvanta:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/OrvantaConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/OrvantaConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Orvanta)

configure_file(${CMAKE_CURRENT_LIST_DIR}/orvanta.pc.in ${CMAKE_CURRENT_BINARY_DIR}/orvanta.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orvanta.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
