# Builds and runs the ten-line host against the kit. MODE is find_package, add_subdirectory or
# static.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/home)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGV}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(hosts ${WORK_DIR}/build/host)
if(MODE STREQUAL "find_package")
  run(${CMAKE_COMMAND} --install ${KIT_BINARY_DIR} --prefix ${WORK_DIR}/prefix)
  # orvanta-doctor is installed with the kit and runs against the installed library.
  if(WITH_DOCTOR)
    run(${WORK_DIR}/prefix/bin/orvanta-doctor --help)
    if(NOT last_output MATCHES "Checks: configuration files database")
      message(FATAL_ERROR "the installed orvanta-doctor did not list its checks:\n${last_output}")
    endif()
  endif()
  run(${CMAKE_COMMAND} -S ${PACKAGE_DIR}/consumer -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
elseif(MODE STREQUAL "static")
  # The static kit with its GIO adapters that the add_subdirectory host built (one build of the kit
  # serves both), configured for one prefix, installed into another and then moved: the host finds
  # every dependency in what was installed, wherever it lies.
  run(${CMAKE_COMMAND} --install ${SUBDIRECTORY_BUILD_DIR} --prefix ${WORK_DIR}/installed)
  file(RENAME ${WORK_DIR}/installed ${WORK_DIR}/prefix)
  file(GLOB_RECURSE targets_files ${WORK_DIR}/prefix/*/OrvantaTargets.cmake)
  file(READ "${targets_files}" targets)
  if(NOT targets MATCHES "PkgConfig::GIO")
    message(FATAL_ERROR "the static kit was built without its GIO adapters")
  endif()
  # libcurl and libcrypto are loaded when first needed, never linked: a host links neither.
  if(targets MATCHES "OpenSSL::Crypto|CURL::libcurl")
    message(FATAL_ERROR "the static kit links libcurl or libcrypto into its host")
  endif()
  run(${CMAKE_COMMAND} -S ${PACKAGE_DIR}/consumer -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
  # The same host through pkg-config, as a build system without CMake would link it.
  file(GLOB_RECURSE pc_files ${WORK_DIR}/prefix/*/orvanta.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  run(pkg-config --static --cflags --libs orvanta)
  separate_arguments(pc_flags UNIX_COMMAND "${last_output}")
  run(${CMAKE_CXX_COMPILER} -std=c++20 ${PACKAGE_DIR}/consumer/main.cpp ${pc_flags}
      -o ${WORK_DIR}/pkg-config-host)
  list(APPEND hosts ${WORK_DIR}/pkg-config-host)
else()
  # The kit pulled into the host's own build, as a static library with the GIO adapters and its
  # install rules (the library alone: no tests, tools or other adapters), for one prefix. Built
  # without optimisation: what is tested here is how the kit is packaged, not how fast it runs.
  run(${CMAKE_COMMAND} -S ${PACKAGE_DIR}/subdirectory -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
      -DORVANTA_SOURCE_DIR=${KIT_SOURCE_DIR} -DCMAKE_BUILD_TYPE=Debug
      -DORVANTA_WERROR=${KIT_WERROR} -DORVANTA_PCH=ON -DORVANTA_BUILD_SHARED=OFF
      -DORVANTA_INSTALL=ON -DORVANTA_WITH_GTK=OFF -DORVANTA_WITH_OBJC=OFF
      -DCMAKE_INSTALL_PREFIX=${WORK_DIR}/configured-prefix)
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build -j 2)

file(WRITE ${WORK_DIR}/home/OrvantaConfig.plist [=[<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>AppId</key><string>host-app</string>
<key>Token</key><string>host-token</string>
<key>Secret</key><string>host-secret</string>
<key>EventsToken</key><string>host-events</string>
</dict></plist>
]=])
foreach(host IN LISTS hosts)
  run(${host} ${WORK_DIR}/home)
  if(NOT last_output MATCHES "Configuration with token: host-token, secret: host-secret, appId: host-app and eventsToken: host-events")
    message(FATAL_ERROR "${host} did not print the configuration line:\n${last_output}")
  endif()
  message(STATUS "${host} output:\n${last_output}")
endforeach()
