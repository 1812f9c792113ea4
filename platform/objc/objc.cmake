# Delegate interception over an Objective-C runtime: an optional target, on when an Objective-C++
# compiler is found (GCC's gobjc++ with its runtime here). Included from the top-level
# CMakeLists.txt once the kit's targets exist.
option(ORVANTA_WITH_OBJC "Build the delegate interception over the Objective-C runtime" ON)

if(ORVANTA_WITH_OBJC)
  # With GCC, the Objective-C++ compiler is GCC's own (gobjc++), not another compiler's front end
  # that happens to be installed: the check tries the C++ compiler first.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT DEFINED ENV{OBJCXX})
    set(ENV{OBJCXX} ${CMAKE_CXX_COMPILER})
  endif()
  include(CheckLanguage)
  # Looked for again while not found: a build folder configured before gobjc++ was installed
  # (by the demo, say) finds it on its next configuration.
  if(NOT CMAKE_OBJCXX_COMPILER)
    unset(CMAKE_OBJCXX_COMPILER CACHE)
  endif()
  check_language(OBJCXX)
  if(NOT CMAKE_OBJCXX_COMPILER)
    message(STATUS "orvanta: Objective-C support off: gobjc++ not found")
  endif()
endif()

if(ORVANTA_WITH_OBJC AND CMAKE_OBJCXX_COMPILER)
  enable_language(OBJCXX)
  if(ORVANTA_CCACHE AND NOT CMAKE_OBJCXX_COMPILER_LAUNCHER)
    set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${ORVANTA_CCACHE})
  endif()

  # Beside the kit, not inside it: an Objective-C host links it next to Orvanta::orvanta (it uses
  # the kit's public interface only), tests next to the internal library.
  add_library(orvanta_platform_objc STATIC
              ${CMAKE_CURRENT_LIST_DIR}/delegate_interception.mm
              ${CMAKE_CURRENT_LIST_DIR}/swizzling.mm
              ${CMAKE_CURRENT_LIST_DIR}/kit_interception_hooks.cpp)
  set_target_properties(orvanta_platform_objc PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(orvanta_platform_objc
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
           $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>)
  target_compile_features(orvanta_platform_objc PUBLIC cxx_std_20)
  # The runtime library is found by the compiler driver (GCC keeps it beside its own libraries).
  target_link_libraries(orvanta_platform_objc PUBLIC objc)
  orvanta_set_warnings(orvanta_platform_objc)
  # CMake knows no language standards for GCC's Objective-C++: the flag is given here, to this
  # target and to whoever compiles Objective-C++ against it.
  target_compile_options(orvanta_platform_objc
                         PUBLIC $<$<COMPILE_LANGUAGE:OBJCXX>:-std=c++${CMAKE_CXX_STANDARD}>)

  if(ORVANTA_BUILD_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
    file(GLOB _orvanta_objc_tests CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/objc/*.mm)
    add_executable(orvanta_objc_tests ${_orvanta_objc_tests})
    target_include_directories(orvanta_objc_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(orvanta_objc_tests PRIVATE orvanta_platform_objc orvanta_testing
                                                     GTest::gtest GTest::gtest_main)
    orvanta_set_warnings(orvanta_objc_tests)
    gtest_discover_tests(orvanta_objc_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES LABELS objc TIMEOUT 120)
  endif()
endif()
