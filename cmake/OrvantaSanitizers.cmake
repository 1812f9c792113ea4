# ORVANTA_SANITIZE applies to the whole build, so the kit, its tests and its tools agree on the
# runtime. Accepted values: "address,undefined" or "thread".
if(ORVANTA_SANITIZE)
  string(REPLACE ";" "," _orvanta_san "${ORVANTA_SANITIZE}")
  if(_orvanta_san MATCHES "thread" AND _orvanta_san MATCHES "address")
    message(FATAL_ERROR "ThreadSanitizer cannot be combined with AddressSanitizer")
  endif()
  add_compile_options(-fsanitize=${_orvanta_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_orvanta_san})
  add_compile_definitions(ORVANTA_SANITIZED=1)
  message(STATUS "Orvanta: sanitizers ${_orvanta_san}")
endif()
