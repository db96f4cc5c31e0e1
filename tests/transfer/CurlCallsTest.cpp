#include "transfer/CurlCalls.h"

#include "tests/transfer/ConnectionFixture.h"

#include <new>
#include <type_traits>

namespace {

using CurlCallsTest = ConnectionFixture;

static_assert(CurlArgument<long> && CurlArgument<curl_off_t> && CurlArgument<const char*> && CurlArgument<void*> &&
              CurlArgument<std::nullptr_t> && CurlArgument<curl_write_callback>);
// libcurl would read these from the wrong number of bytes.
static_assert(!CurlArgument<int> && !CurlArgument<bool> && !CurlArgument<unsigned> && !CurlArgument<double>);
static_assert(!std::is_invocable_v<decltype(&setOption<long>), CURL*, CURLoption, long>);

TEST_F(CurlCallsTest, FailureNamesTheCallItsCodeAndADetailWithoutSeparator) {
    EXPECT_EQ(failureText([] { throwCurlCodeError("CURLOPT_PROXY", CURLE_UNKNOWN_OPTION, "proxy.example"); }),
              internalError(std::string("\"CURLOPT_PROXY\" failed with CURLcode ") +
                            curl_easy_strerror(CURLE_UNKNOWN_OPTION) + "proxy.example"));
    EXPECT_EQ(failureText([] { throwCurlMultiCodeError("curl_multi_perform", CURLM_INTERNAL_ERROR, "Initial"); }),
              internalError(std::string("\"curl_multi_perform\" failed with CURLMcode ") +
                            curl_multi_strerror(CURLM_INTERNAL_ERROR) + "Initial"));
    // A call that answers with a null pointer has no code.
    EXPECT_EQ(failureText([] { throwCurlCodeError("curl_easy_init", 0, ""); }),
              internalError("\"curl_easy_init\" failed "));
    EXPECT_EQ(failureText([] { throwCurlMultiCodeError("curl_multi_init", 0, "why"); }),
              internalError("\"curl_multi_init\" failed why"));
    // An unknown one still has a text.
    EXPECT_EQ(failureText([] { throwCurlCodeError("CURLOPT_URL", 120, ""); }),
              easyFailure("CURLOPT_URL", static_cast<CURLcode>(120)));
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
    curl.failInfo(CURLINFO_HTTP_VERSION, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { getInfo<long>(easy, CURL_NAMED(CURLINFO_HTTP_VERSION)); }),
              easyFailure("CURLINFO_HTTP_VERSION", CURLE_UNKNOWN_OPTION));
}

TEST_F(CurlCallsTest, ListKeepsItsLinesInOrderEvenIfOneFindsNoMemory) {
    CurlSlist list;
    EXPECT_FALSE(list);
    EXPECT_EQ(list.get(), nullptr);
    list.append("Accept:");
    list.append("X-A: b");
    curl.failCall(CurlFunction::SlistAppend, 0);
    EXPECT_THROW(list.append("X-C: d"), std::bad_alloc);
    ASSERT_TRUE(list);
    EXPECT_STREQ(list.get()->data, "Accept:");
    EXPECT_STREQ(list.get()->next->data, "X-A: b");
    EXPECT_EQ(list.get()->next->next, nullptr);
    list.clear();
    EXPECT_FALSE(list);
}

} // namespace
