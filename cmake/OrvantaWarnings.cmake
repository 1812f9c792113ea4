# Warnings for the kit's own targets. Third-party headers come in as system includes and stay quiet.
function(orvanta_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                           -Wold-style-cast -Wcast-align -Woverloaded-virtual)
  if(ORVANTA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
