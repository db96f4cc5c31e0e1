# The library as a static archive, which lets unit tests reach inside.
set(NETROVE_SOURCES
    errors/HTTPException.cpp
    errors/TranslateTransferException.cpp
    transfer/CurlCalls.cpp
    transfer/CurlSingleton.cpp
    transfer/LibCurlInitializer.cpp
    transfer/TextEncoding.cpp
    transfer/NumericNarrowing.cpp
    transfer/MonotonicTime.cpp
    transfer/Trace.cpp
    transfer/HttpSyntax.cpp
    transfer/HTTPConnection.cpp
    transfer/HTTPConnectionUrl.cpp
    transfer/HTTPConnectionOpen.cpp
    transfer/HTTPConnectionSend.cpp
    transfer/HTTPConnectionHead.cpp
    transfer/HTTPConnectionCompletion.cpp
    transfer/HTTPConnectionWire.cpp
    transfer/HTTPConnectionTimeouts.cpp
    transfer/HTTPConnectionRequest.cpp
    streaming/HTTPConnectionContent.cpp
    streaming/HostObjectCall.cpp
    streaming/InterruptibleStreamCopier.cpp
    streaming/InterruptibleStreamCopierReceive.cpp
    streaming/InterruptibleStreamCopierSend.cpp
    streaming/ProgressReporterCall.cpp)

set(NETROVE_LIBRARIES netrove_host CURL::libcurl Boost::thread Boost::chrono Boost::date_time Poco::Net)
add_library(netrove_static STATIC ${NETROVE_SOURCES})
target_link_libraries(netrove_static PUBLIC ${NETROVE_LIBRARIES})
