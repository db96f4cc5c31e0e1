// Fixtures for tests of a connection: a fresh scope with the interposer in front of libcurl.
#pragma once

#include "embedded/messages/WarningSink.h"
#include "http/MonotonicTime.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/CurlCalls.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace netrove;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testsupport::CurlCall;
using testsupport::CurlFunction;
using testsupport::CurlInterposer;
using testsupport::failureText;
using testsupport::internalError;
using testsupport::StandardOutputCapture;

inline constexpr std::int64_t kMs = 1'000'000;
inline const std::string kOk = "HTTP/1.1 200 OK\r\n\r\n";

// What a libcurl call that fails is reported as. The texts of libcurl itself may differ from one version to the next.
inline std::string easyFailure(const std::string& what, CURLcode code, const std::string& detail = "") {
    return internalError('"' + what + "\" failed with CURLcode " + curl_easy_strerror(code) + detail);
}
inline std::string multiFailure(const std::string& what, CURLMcode code, const std::string& detail = "") {
    return internalError('"' + what + "\" failed with CURLMcode " + curl_multi_strerror(code) + detail);
}

class ConnectionFixture : public testsupport::ScopeFixture {
protected:
    ConnectionFixture() {
        scope().Warnings.setHandler(
            [this](const resource_core::BaseMsgID& id) { warnings.push_back(testsupport::identifierText(id)); });
    }

    // Sets the URL and opens.
    static void open(HTTPConnection& connection, const std::u16string& url = u"http://127.0.0.1/") {
        connection.setURL(url);
        connection.openConnection();
    }

    // What libcurl says of a failure.
    static void setErrorText(const std::string& text) {
        char* const buffer = getCurlSingleton().ErrorBuffer;
        buffer[text.copy(buffer, CURL_ERROR_SIZE - 1)] = '\0';
    }

    // Each wait finds something ready.
    void findReadyAlways() {
        curl.OnWait = [](int, int& ready) {
            ready = 1;
            return CURLM_OK;
        };
    }

    // The next perform plays a whole exchange without a network: the request's head, the response's head, the result.
    // libcurl then reports the status of that head. Empty heads are left out.
    void playExchange(const std::string& responseHead, CURLcode result = CURLE_OK,
                      const std::string& requestHead = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n") {
        const std::size_t blank = responseHead.find(' ');
        curl.giveInfo(CURLINFO_RESPONSE_CODE, blank == std::string::npos ? 0L : std::stol(responseHead.substr(blank)));
        findReadyAlways();
        curl.OnPerform = [=, this, played = false](int& running) mutable {
            running = 0;
            if (!std::exchange(played, true)) {
                if (!requestHead.empty()) {
                    curl.callRequestHead(requestHead);
                }
                curl.callResponseHead(responseHead);
                curl.finishWith(result);
            }
            return CURLM_OK;
        };
    }

    // What an option was last set to, in words.
    std::string optionText(CURLoption option) const {
        const CurlCall* call = curl.lastOption(option);
        return call == nullptr ? "unset" : call->text();
    }

    // The libcurl calls that change the handle or its options, in order.
    std::vector<std::string> handleCalls() const {
        return curl.texts({CurlFunction::EasySetopt, CurlFunction::EasyReset, CurlFunction::MultiAddHandle,
                           CurlFunction::MultiRemoveHandle});
    }

    CurlInterposer curl;
    std::vector<std::string> warnings;
};

// The same with an open connection of the HTTP interface.
class OpenConnectionFixture : public ConnectionFixture {
protected:
    using Field = std::pair<std::string, std::string>;

    OpenConnectionFixture() {
        connection.Settings.HTTPOptionsMode = true;
        open(connection);
    }
    ~OpenConnectionFixture() override { connection.Settings.Debug = 0; } // its destruction is not to be traced

    // Sends with only the calls of this send on record; what goes wrong, or "nothing".
    std::string send() {
        curl.clear();
        return failureText([&] { connection.sendRequest(); });
    }
    // The same with these fields, and an answer that has no content.
    std::string sendWith(const std::vector<Field>& fields) {
        for (const auto& [name, value] : fields) {
            connection.addField(name, value);
        }
        playExchange(kOk);
        return send();
    }
    void reopen() {
        connection.closeConnection();
        connection.openConnection();
    }
    HTTPConnection connection;
};
