// Fixture for tests of the copier: a connection on real handles, with libcurl's part played by the test.
#pragma once

#include "hostcalls/HostArray.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace streamingtest {

using namespace netrove;

using testing::ElementsAre;
using testsupport::CurlFunction;
using testsupport::failureText;
using testsupport::internalError;
using Lines = std::vector<std::string>;

inline constexpr const char* kStopText = "Zentorak::System::InterruptException[The operation was stopped on request.]";

// Handle of a host object or value, as the library holds it. The shared one is a handle of its own.
vxArray_tag* handleOf(const vantik::Array& value);
SharedHostArray sharedOf(const vantik::Array& value);

// A new value of a class that the embedding API does not make: all zero.
vantik::Array zeros(std::size_t rows, std::size_t columns, vxClassID classId);
// rows-by-columns uint8 with these bytes in column order.
vantik::Array byteMatrix(std::size_t rows, std::size_t columns, const std::string& bytes);

// Its members are public for the rows of tables, which act on a fixture.
class CopierFixture : public testsupport::ScopeFixture {
public:
    using ScopeFixture::host;

    // One perform: what libcurl does in it, and how many handles it leaves running.
    using Perform = std::function<int()>;

    CopierFixture();

    // What the performs do, in order. One more than these is a test failure and ends the pump.
    void willPerform(std::vector<Perform> performs);
    // What the waits report, in order; 1 ready descriptor after the last of them.
    void willWait(std::vector<int> ready) { Waits.assign(ready.begin(), ready.end()); }

    // Performs in the parts of a script.
    static Perform leaves(int running) {
        return [running] { return running; };
    }
    Perform receives(std::string bytes, int running); // libcurl writes them
    Perform sends(std::size_t room, int running);     // libcurl reads once, with so much room; see Uploaded

    // What libcurl gets of one read: "4 abcd", "end", "pause" or "abort".
    std::string read(std::size_t room);

    // Journal: what the host objects note between the recorded calls.
    void note(const std::string& text);
    // Notes and the steps of a pump in the order in which they happened: "wait" for a second, "pause" for 100 ms,
    // "perform", "message", "poll" for an interrupt, "resume". A call with other arguments is there as it was recorded.
    std::string pumpJournal() const;
    // What an action traces at a level of Debug.
    std::string traceOf(int level, const std::function<void()>& action);

    // Scripted objects that note their calls: "start", "get 16384", "put 100", "close", "update 100".
    testsupport::ScriptedProvider provide(std::string content, const testsupport::Missing& missing = {});
    testsupport::ScriptedConsumer consume(const testsupport::Missing& missing = {});
    testsupport::ScriptedReporter report(const testsupport::Missing& missing = {});

    void setPayload(const std::string& bytes) {
        Connection.Settings.setPayload(RequestSettings::Bytes(bytes.begin(), bytes.end()));
    }
    // A data timeout of one second whose deadline has just passed, on a connection that is up.
    void letDeadlinePass();

    testsupport::CurlInterposer Curl;
    HTTPConnection Connection;
    std::string Uploaded; // everything that `sends` was given

private:
    std::deque<Perform> Performs;
    std::deque<int> Waits;
    std::vector<std::pair<std::size_t, std::string>> Notes; // number of calls recorded before, text
};

} // namespace streamingtest
