// Every libcurl call of whole exchanges fails in turn, its first time, its second time and so on. The report is the
// described one for that call, nothing leaks, the consumer that was started is closed, and the scope stays usable.
#include "tests/recorded/FaultScenarios.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace testsupport {

namespace {

constexpr CURLcode kEasyCode = CURLE_FAILED_INIT;
constexpr CURLMcode kMultiCode = CURLM_INTERNAL_ERROR;

// Those that can fail at all. curl_multi_info_read returns null where there is no message.
constexpr CurlFunction kFallible[] = {
    CurlFunction::EasyInit,  CurlFunction::EasySetopt,     CurlFunction::EasyGetinfo,       CurlFunction::EasyPause,
    CurlFunction::MultiInit, CurlFunction::MultiAddHandle, CurlFunction::MultiRemoveHandle, CurlFunction::MultiPerform,
    CurlFunction::MultiWait, CurlFunction::MultiInfoRead,  CurlFunction::SlistAppend};

std::string internalError(const std::string& text) {
    return "VANTIK:webservices:InternalError(" + text + ')';
}

std::string easyFailure(const std::string& what, const std::string& detail = {}) {
    return internalError('"' + what + "\" failed with CURLcode " + curl_easy_strerror(kEasyCode) + detail);
}

std::string multiFailure(const std::string& what, const std::string& detail = {}) {
    return internalError('"' + what + "\" failed with CURLMcode " + curl_multi_strerror(kMultiCode) + detail);
}

// Which of the four places the perform at `index` stands in: after no wait it is the first of the send routine, after a
// wait of 500 ms one of its loop, and after one of 1000 ms one of a pump, for content sent before that, received after
// it. The pump for content in memory ends with a wait of its own, so after its first perform the calls alone do not say
// which place it is.
std::vector<std::string> performDetails(const std::vector<CurlCall>& calls, std::size_t index) {
    std::int64_t wait = 0;
    bool headAwaited = false;
    int performs = 0;
    for (std::size_t i = 0; i < index; ++i) {
        if (calls[i].Function == CurlFunction::MultiWait) {
            wait = calls[i].Number;
            headAwaited = headAwaited || wait == 500;
        } else if (calls[i].Function == CurlFunction::MultiPerform) {
            headAwaited = headAwaited || wait == 0;
            wait = 0;
            ++performs;
        } else if (calls[i].Function == CurlFunction::MultiAddHandle) {
            headAwaited = false; // another exchange
            performs = 0;
        }
    }
    if (wait == 0) {
        return {"Initial multi-perform call for request"};
    }
    if (wait == 500) {
        return {"start reading response"};
    }
    if (headAwaited) {
        return {"reading from network"};
    }
    return performs == 0 ? std::vector<std::string>{"writing to network"}
                         : std::vector<std::string>{"writing to network", "Initial multi-perform call for request",
                                                    "reading from network"};
}

// The status is read on the first line of a head, and again after the message that announces the end.
bool isReadInHead(const std::vector<CurlCall>& calls, std::size_t index) {
    return index == 0 || calls[index - 1].Function != CurlFunction::MultiInfoRead;
}

// Any one of these.
std::vector<std::string> expectedFailures(const std::vector<CurlCall>& calls, std::size_t index) {
    const CurlCall& call = calls[index];
    const std::string name = call.text().substr(0, call.text().find(' '));
    switch (call.Function) {
    case CurlFunction::EasyInit:
        return {internalError("\"curl_easy_init\" failed ")};
    case CurlFunction::MultiInit:
        return {internalError("\"curl_multi_init\" failed ")};
    case CurlFunction::EasySetopt:
        return {easyFailure(name)}; // no scenario has a proxy, whose host and port would follow
    case CurlFunction::EasyGetinfo:
        if (call.Id == CURLINFO_CONNECT_TIME) {
            return {"nothing"}; // a time that is not known is that of no connection
        }
        return {easyFailure(name, call.Id == CURLINFO_RESPONSE_CODE && isReadInHead(calls, index)
                                      ? "getting response code after first header"
                                      : "")};
    case CurlFunction::MultiAddHandle:
        return {multiFailure("curl_multi_add_handle")};
    case CurlFunction::MultiRemoveHandle:
        // Ignored where an object is destroyed, which is where a reset follows and nothing else.
        return {index + 2 == calls.size() && calls.back().Function == CurlFunction::EasyReset
                    ? "nothing"
                    : multiFailure("curl_multi_remove_handle")};
    case CurlFunction::MultiPerform: {
        std::vector<std::string> texts = performDetails(calls, index);
        for (std::string& text : texts) {
            text = multiFailure("curl_multi_perform", text);
        }
        return texts;
    }
    case CurlFunction::MultiWait:
        return {multiFailure("curl_multi_wait")};
    case CurlFunction::SlistAppend:
        return {"VANTIK:webservices:ConnectionFailed(std::bad_alloc)"};
    default:
        return {"nothing"};
    }
}

// Handles that are gone and could not be made anew stay gone: every later open of the scope fails, and says so.
std::string expectedScope(CurlFunction function, const std::vector<CurlCall>& calls) {
    const bool renewed = calls.front().Function == CurlFunction::MultiRemoveHandle;
    if (renewed && function == CurlFunction::EasyInit) {
        return internalError(std::string("\"CURLOPT_COOKIEFILE\" failed with CURLcode ") +
                             curl_easy_strerror(CURLE_BAD_FUNCTION_ARGUMENT)) +
               ", content ''";
    }
    if (renewed && function == CurlFunction::MultiInit) {
        return internalError(std::string("\"curl_multi_remove_handle\" failed with CURLMcode ") +
                             curl_multi_strerror(CURLM_BAD_HANDLE)) +
               ", content ''";
    }
    return "usable";
}

class LibcurlFault : public ::testing::TestWithParam<Scenario> {};

TEST_P(LibcurlFault, IsReportedAndLeavesTheScopeUsable) {
    const PlayedRun good = GetParam().Play({[](CurlInterposer&) {}});
    ASSERT_EQ(good.Failure, "nothing");
    ASSERT_EQ(good.ScopeAfterwards, "usable");
    int tried = 0;
    for (const CurlFunction function : kFallible) {
        const int code = function == CurlFunction::EasySetopt || function == CurlFunction::EasyGetinfo ||
                                 function == CurlFunction::EasyPause
                             ? static_cast<int>(kEasyCode)
                             : static_cast<int>(kMultiCode);
        for (int nth = 1;; ++nth) {
            const PlayedRun run = GetParam().Play({[&](CurlInterposer& curl) { curl.failCall(function, code, nth); }});
            std::size_t index = 0; // of the call that has failed
            int seen = 0;
            while (index < run.Calls.size() && (seen += run.Calls[index].Function == function ? 1 : 0) < nth) {
                ++index;
            }
            if (index == run.Calls.size()) {
                break; // there is no n-th call
            }
            SCOPED_TRACE(run.Calls[index].text() + ", call " + std::to_string(nth) + " of its kind");
            EXPECT_THAT(expectedFailures(run.Calls, index), ::testing::Contains(run.Failure));
            if (run.Failure == "nothing") {
                EXPECT_EQ(run.Outcome, good.Outcome);
            }
            EXPECT_EQ(run.ScopeAfterwards, expectedScope(function, run.Calls));
            EXPECT_EQ(run.ArraysLeft, 0U);
            EXPECT_FALSE(run.leavesConsumerOpen());
            ++tried;
        }
    }
    EXPECT_GT(tried, 40);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, LibcurlFault, ::testing::ValuesIn(faultScenarios()),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
} // namespace testsupport
