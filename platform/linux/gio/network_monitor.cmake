# Reachability over GIO's network monitor: an optional adapter, on when gio-2.0 is found.
# Included from the top-level CMakeLists.txt once the kit's targets exist.
option(ORVANTA_WITH_GIO "Build the GIO adapters (network monitor)" ON)

if(ORVANTA_WITH_GIO)
  pkg_check_modules(ORVANTA_GIO QUIET IMPORTED_TARGET gio-2.0)
  if(NOT ORVANTA_GIO_FOUND)
    message(STATUS "orvanta: GIO support off: gio-2.0 not found")
  endif()
endif()

if(ORVANTA_WITH_GIO AND ORVANTA_GIO_FOUND)
  add_library(orvanta_gio_network_monitor STATIC
              ${CMAKE_CURRENT_LIST_DIR}/gio_network_monitor.cpp)
  set_target_properties(orvanta_gio_network_monitor PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(orvanta_gio_network_monitor PUBLIC orvanta_internal PkgConfig::ORVANTA_GIO)
  orvanta_set_warnings(orvanta_gio_network_monitor)

  if(ORVANTA_BUILD_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
    add_executable(orvanta_gio_tests ${PROJECT_SOURCE_DIR}/tests/gio/gio_network_monitor_test.cpp)
    target_link_libraries(orvanta_gio_tests PRIVATE orvanta_gio_network_monitor orvanta_testing
                                                    GTest::gtest GTest::gtest_main)
    orvanta_set_warnings(orvanta_gio_tests)
    # The kernel's routes only: the test stays off the system bus.
    gtest_discover_tests(orvanta_gio_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES LABELS gio TIMEOUT 120
                                    ENVIRONMENT "GIO_USE_NETWORK_MONITOR=netlink")
  endif()
endif()
