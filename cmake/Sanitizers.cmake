# MENDWISE_SANITIZE_ADDRESS: AddressSanitizer + UndefinedBehaviorSanitizer.
# MENDWISE_SANITIZE_THREAD: ThreadSanitizer. The two cannot be combined.
# MENDWISE_BUILD_FUZZ: clang's coverage for libFuzzer, with AddressSanitizer and
# UndefinedBehaviorSanitizer, so that every fuzz run also looks for memory faults and leaks.
function(mendwise_set_sanitizers target)
    if(MENDWISE_BUILD_FUZZ)
        if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR MENDWISE_SANITIZE_THREAD)
            message(FATAL_ERROR "MENDWISE_BUILD_FUZZ needs clang (CMAKE_CXX_COMPILER=clang++) "
                                "and cannot be combined with MENDWISE_SANITIZE_THREAD")
        endif()
        set(MENDWISE_SANITIZE_ADDRESS ON)
        target_compile_options(${target} INTERFACE -fsanitize=fuzzer-no-link)
    endif()
    if(MENDWISE_SANITIZE_ADDRESS AND MENDWISE_SANITIZE_THREAD)
        message(FATAL_ERROR "MENDWISE_SANITIZE_ADDRESS and MENDWISE_SANITIZE_THREAD are exclusive")
    endif()
    if(MENDWISE_SANITIZE_ADDRESS)
        set(flags -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    elseif(MENDWISE_SANITIZE_THREAD)
        set(flags -fsanitize=thread -fno-omit-frame-pointer)
    else()
        return()
    endif()
    target_compile_options(${target} INTERFACE ${flags})
    target_link_options(${target} INTERFACE ${flags})
endfunction()
