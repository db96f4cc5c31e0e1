#include "transfer/CurlCalls.h"

#include "tests/transfer/ConnectionFixture.h"

#include <new>
#include <type_traits>

namespace {

using CurlCallsTest = ConnectionFixture;

// The texts of libcurl itself may differ from one version to the next.
std::string easyText(CURLcode code) {
    return curl_easy_strerror(code);
}

std::string multiText(CURLMcode code) {
    return curl_multi_strerror(code);
}

static_assert(CurlArgument<long> && CurlArgument<curl_off_t> && CurlArgument<const char*> && CurlArgument<void*> &&
              CurlArgument<std::nullptr_t> && CurlArgument<curl_write_callback>);
// libcurl would read these from the wrong number of bytes.
static_assert(!CurlArgument<int> && !CurlArgument<bool> && !CurlArgument<unsigned> && !CurlArgument<double>);
static_assert(!std::is_invocable_v<decltype(&setOption<long>), CURL*, CURLoption, long>);

TEST_F(CurlCallsTest, EasyFailureEndsInLibcurlsText) {
    EXPECT_EQ(failureText([] { throwCurlCodeError("CURLOPT_URL", CURLE_OUT_OF_MEMORY, ""); }),
              internalError("\"CURLOPT_URL\" failed with CURLcode " + easyText(CURLE_OUT_OF_MEMORY)));
}

TEST_F(CurlCallsTest, MultiFailureNamesItsOwnKindOfCode) {
    EXPECT_EQ(failureText([] { throwCurlMultiCodeError("curl_multi_wait", CURLM_BAD_HANDLE, ""); }),
              internalError("\"curl_multi_wait\" failed with CURLMcode " + multiText(CURLM_BAD_HANDLE)));
}

TEST_F(CurlCallsTest, DetailFollowsWithoutSeparator) {
    EXPECT_EQ(failureText([] {
                  throwCurlMultiCodeError("curl_multi_perform", CURLM_INTERNAL_ERROR,
                                          "Initial multi-perform call for request");
              }),
              internalError("\"curl_multi_perform\" failed with CURLMcode " + multiText(CURLM_INTERNAL_ERROR) +
                            "Initial multi-perform call for request"));
    EXPECT_EQ(
        failureText([] { throwCurlCodeError("CURLOPT_PROXY", CURLE_UNKNOWN_OPTION, "proxy.example"); }),
        internalError("\"CURLOPT_PROXY\" failed with CURLcode " + easyText(CURLE_UNKNOWN_OPTION) + "proxy.example"));
}

TEST_F(CurlCallsTest, CodeZeroNamesNoCode) {
    EXPECT_EQ(failureText([] { throwCurlCodeError("curl_easy_init", 0, ""); }),
              internalError("\"curl_easy_init\" failed "));
    EXPECT_EQ(failureText([] { throwCurlMultiCodeError("curl_multi_init", 0, "why"); }),
              internalError("\"curl_multi_init\" failed why"));
}

TEST_F(CurlCallsTest, UnknownCodeStillHasAText) {
    EXPECT_EQ(failureText([] { throwCurlCodeError("CURLOPT_URL", 120, ""); }),
              internalError("\"CURLOPT_URL\" failed with CURLcode " + easyText(static_cast<CURLcode>(120))));
}

TEST_F(CurlCallsTest, RefusedOptionIsReportedByItsName) {
    CURL* easy = getCurlSingleton().EasyHandle;
    curl.failOption(CURLOPT_PROXYPORT, CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(
        failureText([&] { setOption(easy, CURL_NAMED(CURLOPT_PROXYPORT), 80L, "80"); }),
        internalError("\"CURLOPT_PROXYPORT\" failed with CURLcode " + easyText(CURLE_BAD_FUNCTION_ARGUMENT) + "80"));
    EXPECT_EQ(failureText([&] { setOption(easy, CURL_NAMED(CURLOPT_PROXYPORT), 80L, "80"); }), "nothing");
}

TEST_F(CurlCallsTest, OptionsReachLibcurlWithTheirValues) {
    CURL* easy = getCurlSingleton().EasyHandle;
    curl.clear();
    setOption(easy, CURL_NAMED(CURLOPT_NOSIGNAL), 1L);
    setOption(easy, CURL_NAMED(CURLOPT_URL), "http://127.0.0.1/");
    setOption(easy, CURL_NAMED(CURLOPT_CAINFO), nullptr);
    setOption(easy, CURL_NAMED(CURLOPT_MAXFILESIZE_LARGE), curl_off_t{1} << 40);
    setOption(easy, CURL_NAMED(CURLOPT_PRIVATE), static_cast<void*>(this));
    EXPECT_THAT(curl.options(),
                ElementsAre("CURLOPT_NOSIGNAL 1", "CURLOPT_URL http://127.0.0.1/", "CURLOPT_CAINFO (null)",
                            "CURLOPT_MAXFILESIZE_LARGE 1099511627776", "CURLOPT_PRIVATE"));
    EXPECT_EQ(curl.calls().back().Pointer, this);
    EXPECT_EQ(getInfo<char*>(easy, CURL_NAMED(CURLINFO_PRIVATE)), reinterpret_cast<char*>(this));
}

TEST_F(CurlCallsTest, InformationIsReadByItsType) {
    CURL* easy = getCurlSingleton().EasyHandle;
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 418L);
    curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, 1L << 40);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25);
    curl.giveInfo(CURLINFO_CONTENT_TYPE, "text/plain");
    EXPECT_EQ(getInfo<long>(easy, CURL_NAMED(CURLINFO_RESPONSE_CODE)), 418);
    EXPECT_EQ(getInfo<curl_off_t>(easy, CURL_NAMED(CURLINFO_SIZE_DOWNLOAD_T)), curl_off_t{1} << 40);
    EXPECT_EQ(getInfo<double>(easy, CURL_NAMED(CURLINFO_CONNECT_TIME)), 0.25);
    EXPECT_STREQ(getInfo<char*>(easy, CURL_NAMED(CURLINFO_CONTENT_TYPE)), "text/plain");
}

TEST_F(CurlCallsTest, FailedInformationIsReportedByItsName) {
    CURL* easy = getCurlSingleton().EasyHandle;
    curl.failInfo(CURLINFO_HTTP_VERSION, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { getInfo<long>(easy, CURL_NAMED(CURLINFO_HTTP_VERSION)); }),
              internalError("\"CURLINFO_HTTP_VERSION\" failed with CURLcode " + easyText(CURLE_UNKNOWN_OPTION)));
}

TEST_F(CurlCallsTest, ListKeepsItsLinesInOrder) {
    CurlSlist list;
    EXPECT_FALSE(list);
    EXPECT_EQ(list.get(), nullptr);
    list.append("Accept:");
    list.append("X-A: b");
    ASSERT_TRUE(list);
    EXPECT_STREQ(list.get()->data, "Accept:");
    EXPECT_STREQ(list.get()->next->data, "X-A: b");
    EXPECT_EQ(list.get()->next->next, nullptr);
    list.clear();
    EXPECT_FALSE(list);
}

TEST_F(CurlCallsTest, ListSurvivesALineThatFindsNoMemory) {
    CurlSlist list;
    list.append("X-A: b");
    curl.failCall(CurlFunction::SlistAppend, 0);
    EXPECT_THROW(list.append("X-C: d"), std::bad_alloc);
    ASSERT_TRUE(list);
    EXPECT_STREQ(list.get()->data, "X-A: b");
    EXPECT_EQ(list.get()->next, nullptr);
}

} // namespace
