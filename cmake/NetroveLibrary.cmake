# The module and its static twin, which lets unit tests reach inside.
set(NETROVE_SOURCES
    errors/HTTPException.cpp
    errors/InternalError.cpp
    errors/TranslateTransferException.cpp
    transfer/CurlCalls.cpp
    transfer/CurlSingleton.cpp
    transfer/CurlSlist.cpp
    transfer/LibCurlInitializer.cpp
    hostcalls/TextEncoding.cpp
    hostcalls/NumericNarrowing.cpp
    http/MonotonicTime.cpp
    transfer/Trace.cpp
    http/ContentTail.cpp
    http/HttpSyntax.cpp
    http/RequestHead.cpp
    http/ResponseHead.cpp
    http/SilenceLimits.cpp
    transfer/HTTPConnection.cpp
    transfer/HTTPConnectionUrl.cpp
    transfer/HTTPConnectionOpen.cpp
    transfer/HTTPConnectionSend.cpp
    transfer/HTTPConnectionHead.cpp
    transfer/HTTPConnectionCompletion.cpp
    transfer/HTTPConnectionWire.cpp
    transfer/HTTPConnectionTimeouts.cpp
    transfer/HTTPConnectionRequest.cpp
    streaming/ContentBuffer.cpp
    streaming/HTTPConnectionContent.cpp
    hostcalls/HostObjectCall.cpp
    streaming/InterruptibleStreamCopier.cpp
    streaming/InterruptibleStreamCopierReceive.cpp
    streaming/InterruptibleStreamCopierSend.cpp
    streaming/ProgressReporterCall.cpp
    hostclass/ClassRegistration.cpp
    hostclass/ContentMethods.cpp
    hostclass/HTTPConnectionAdapter.cpp
    hostclass/MethodTable.cpp
    hostclass/ModuleEntry.cpp
    hostclass/PropertyTable.cpp
    hostclass/ValueConversion.cpp
    proxy/ProxyLookup.cpp)

set(NETROVE_LIBRARIES netrove_host CURL::libcurl Boost::thread Boost::chrono Boost::date_time
    ${CMAKE_DL_LIBS})
add_library(netrove_static STATIC ${NETROVE_SOURCES})
# Each source by itself: tests stand in front of functions with the linker's --wrap, which reaches calls between objects.
set_target_properties(netrove_static PROPERTIES UNITY_BUILD OFF)
target_link_libraries(netrove_static PUBLIC ${NETROVE_LIBRARIES})
netrove_precompile(netrove_static)

# The module exports its three entry points and nothing else: the version script also hides what templates of the host's
# headers leave behind.
add_library(netrove SHARED $<TARGET_OBJECTS:netrove_static>)
# Where a program that is no host of its own loads the module, the host's library lies beside it.
set_target_properties(netrove PROPERTIES
    LINKER_LANGUAGE CXX LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/netrove.map INSTALL_RPATH "$ORIGIN")
target_link_libraries(netrove PRIVATE ${NETROVE_LIBRARIES})
target_link_options(netrove PRIVATE "LINKER:--version-script=${CMAKE_SOURCE_DIR}/cmake/netrove.map")
add_dependencies(netrove_static netrove_poco)
add_dependencies(netrove netrove_poco)
