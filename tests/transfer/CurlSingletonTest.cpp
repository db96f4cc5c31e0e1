#include "transfer/CurlSingleton.h"

#include "embedded/scope/Scope.h"
#include "tests/transfer/ConnectionFixture.h"

#include <memory>

namespace {

class CurlSingletonTest : public ConnectionFixture {
protected:
    std::vector<std::string> handleMaking() const {
        return curl.texts({CurlFunction::MultiRemoveHandle, CurlFunction::EasyCleanup, CurlFunction::MultiCleanup,
                           CurlFunction::EasyInit, CurlFunction::MultiInit});
    }
};

TEST_F(CurlSingletonTest, SecondCallReturnsTheSameObjectAndMakesNoHandles) {
    CurlSingleton& first = getCurlSingleton();
    EXPECT_THAT(handleMaking(), ElementsAre("curl_easy_init", "curl_multi_init"));
    EXPECT_NE(first.EasyHandle, nullptr);
    EXPECT_NE(first.MultiHandle, nullptr);
    EXPECT_FALSE(first.ConnectionOpen);
    EXPECT_FALSE(first.EasyHandleAttached);
    curl.clear();
    EXPECT_EQ(&getCurlSingleton(), &first);
    EXPECT_THAT(handleMaking(), IsEmpty());
}

TEST_F(CurlSingletonTest, EachScopeHasItsOwnHandlesAndItsEndCleansTheEasyHandleFirst) {
    CurlSingleton& outer = getCurlSingleton();
    outer.ConnectionOpen = true;
    {
        const auto inner = std::make_shared<vantik::detail::Scope>();
        {
            const vantik::detail::ScopeEntry entry(inner);
            CurlSingleton& other = getCurlSingleton();
            EXPECT_NE(&other, &outer);
            EXPECT_NE(other.EasyHandle, outer.EasyHandle);
            EXPECT_NE(other.MultiHandle, outer.MultiHandle);
            EXPECT_FALSE(other.ConnectionOpen);
            resetHandles(); // not refused: the open connection belongs to the other scope
        }
        EXPECT_EQ(&getCurlSingleton(), &outer);
        curl.clear();
    }
    EXPECT_THAT(handleMaking(), ElementsAre("curl_easy_cleanup", "curl_multi_cleanup"));
}

TEST_F(CurlSingletonTest, ResetReplacesBothHandles) {
    CurlSingleton& handles = getCurlSingleton();
    handles.EasyHandleAttached = true;
    curl.clear();
    resetHandles();
    EXPECT_THAT(handleMaking(), ElementsAre("curl_multi_remove_handle", "curl_easy_cleanup", "curl_multi_cleanup",
                                            "curl_easy_init", "curl_multi_init"));
    EXPECT_EQ(&getCurlSingleton(), &handles);
    EXPECT_NE(handles.EasyHandle, nullptr);
    EXPECT_NE(handles.MultiHandle, nullptr);
    EXPECT_TRUE(handles.EasyHandleAttached);
    EXPECT_FALSE(handles.ConnectionOpen);
}

TEST_F(CurlSingletonTest, RefusedResetKeepsTheHandles) {
    CurlSingleton& handles = getCurlSingleton();
    const CurlSingleton before = handles;
    curl.clear();
    handles.ConnectionOpen = true;
    EXPECT_EQ(failureText([] { resetHandles(); }), internalError("resetHandles() called when connection is open"));
    EXPECT_THAT(handleMaking(), IsEmpty());
    EXPECT_TRUE(handles.ConnectionOpen);
    handles.ConnectionOpen = false;
    curl.failCall(CurlFunction::MultiRemoveHandle, CURLM_BAD_EASY_HANDLE);
    EXPECT_EQ(failureText([] { resetHandles(); }), multiFailure("curl_multi_remove_handle", CURLM_BAD_EASY_HANDLE));
    EXPECT_THAT(handleMaking(), ElementsAre("curl_multi_remove_handle"));
    EXPECT_EQ(handles.EasyHandle, before.EasyHandle);
    EXPECT_EQ(handles.MultiHandle, before.MultiHandle);
}

TEST_F(CurlSingletonTest, NothingIsStoredOrLeakedWhereAHandleCannotBeMade) {
    curl.failCall(CurlFunction::EasyInit, 0);
    EXPECT_EQ(failureText([] { getCurlSingleton(); }), internalError("\"curl_easy_init\" failed "));
    EXPECT_EQ(curl.count(CurlFunction::MultiInit), 0u);
    curl.clear();
    curl.failCall(CurlFunction::MultiInit, 0);
    EXPECT_EQ(failureText([] { getCurlSingleton(); }), internalError("\"curl_multi_init\" failed "));
    EXPECT_EQ(curl.count(CurlFunction::EasyInit), curl.count(CurlFunction::EasyCleanup));
    EXPECT_NE(getCurlSingleton().EasyHandle, nullptr);
    EXPECT_NE(getCurlSingleton().MultiHandle, nullptr);
}

// What failed is not repaired. The handles are null then and not dangling, so that everything after it fails in words.
class FailedResetTest : public CurlSingletonTest, public ::testing::WithParamInterface<CurlFunction> {};

TEST_P(FailedResetTest, LeavesAScopeWhereOpensFailAndNothingCrashes) {
    HTTPConnection connection;
    curl.failCall(GetParam(), 0);
    const bool noEasyHandle = GetParam() == CurlFunction::EasyInit;
    EXPECT_EQ(failureText([] { resetHandles(); }),
              internalError(noEasyHandle ? "\"curl_easy_init\" failed " : "\"curl_multi_init\" failed "));
    EXPECT_EQ(getCurlSingleton().EasyHandle == nullptr, noEasyHandle);
    EXPECT_EQ(getCurlSingleton().MultiHandle, nullptr);
    connection.Handles->EasyHandleAttached = true;
    EXPECT_THAT(failureText([&] { open(connection); }),
                ::testing::StartsWith("VANTIK:webservices:InternalError[N:\"curl_multi_remove_handle\" failed with "));
    EXPECT_FALSE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.Handles->ConnectionOpen);
}

INSTANTIATE_TEST_SUITE_P(Handles, FailedResetTest, ::testing::Values(CurlFunction::EasyInit, CurlFunction::MultiInit));

// The new handle gets a cookie engine like that of the construction: without it the cookies would be off for good.
TEST_F(CurlSingletonTest, OpenAfterAResetAddsAHarmlessRemovalAndStartsTheCookieEngine) {
    HTTPConnection connection;
    open(connection);
    std::vector<std::string> expected = handleCalls(); // of the construction and the first open
    expected.insert(expected.begin(), {"curl_multi_remove_handle", "curl_easy_reset"});
    connection.closeConnection();
    HTTPConnection::closeAllConnections();
    curl.clear();
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
    EXPECT_EQ(handleCalls(), expected);
}

TEST_F(CurlSingletonTest, WhateverEndsATransferRaisesTheGeneration) {
    HTTPConnection connection;
    CurlSingleton& handles = getCurlSingleton();
    const std::vector<std::pair<const char*, std::function<void()>>> acts = {
        {"attachment", [&] { EXPECT_EQ(handles.attach(), CURLM_OK); }},
        {"removal", [&] { EXPECT_EQ(handles.detach(), CURLM_OK); }},
        {"reset", [&] { handles.reset(); }},
        {"first open", [&] { open(connection); }},
        {"reopen", [&] { connection.openConnection(); }},
        {"close and replacement",
         [&] {
             connection.closeConnection();
             HTTPConnection::closeAllConnections();
         }},
    };
    for (const auto& [name, act] : acts) {
        const std::uint64_t before = handles.Generation;
        act();
        EXPECT_GT(handles.Generation, before) << name;
    }
}

} // namespace
