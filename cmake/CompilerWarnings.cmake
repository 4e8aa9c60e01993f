# Warnings for every target of the project; MENDWISE_WERROR (on in CI) makes them errors.
function(mendwise_set_warnings target)
    target_compile_options(${target} INTERFACE -Wall -Wextra -Wpedantic
                                               $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow-uncaptured-local>
                                               $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
    if(MENDWISE_WERROR)
        target_compile_options(${target} INTERFACE -Werror)
    endif()
endfunction()
