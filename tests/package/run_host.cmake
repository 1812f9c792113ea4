# Builds and runs the ten-line host against the kit. MODE is find_package or add_subdirectory.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/home)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGV}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

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
else()
  run(${CMAKE_COMMAND} -S ${PACKAGE_DIR}/subdirectory -B ${WORK_DIR}/build -G ${CMAKE_GENERATOR}
      -DORVANTA_SOURCE_DIR=${KIT_SOURCE_DIR})
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
run(${WORK_DIR}/build/host ${WORK_DIR}/home)
if(NOT last_output MATCHES "Configuration with token: host-token, secret: host-secret, appId: host-app and eventsToken: host-events")
  message(FATAL_ERROR "the host did not print the configuration line:\n${last_output}")
endif()
message(STATUS "host output:\n${last_output}")
