# The scripted loopback HTTP server, shared by the tests, the benchmarks and fake-messages-api.
if(NOT TARGET mendwise_loopback_server)
    find_package(Threads REQUIRED)
    add_library(mendwise_loopback_server STATIC
        "${CMAKE_CURRENT_LIST_DIR}/LoopbackHttpServer.cpp"
        "${CMAKE_CURRENT_LIST_DIR}/LoopbackHttpServer.h")
    target_link_libraries(mendwise_loopback_server PUBLIC Qt6::Core Threads::Threads
                                                          mendwise_options)
endif()
