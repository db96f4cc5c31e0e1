#include "hostcalls/HostObjectCall.h"

#include "tests/streaming/CopierFixture.h"

#include <cstring>
#include <string>

using namespace matrix::detail::noninlined::vx_array_api;
using namespace streamingtest;

namespace {

class HostObjectCall : public testsupport::ScopeFixture {
protected:
    // Asks the scripted provider of this test, or another object, for a method.
    bool find(const HostMethod& method, const vantik::Array& object) {
        vxArray_tag* arguments[] = {handleOf(object)};
        HostArray result;
        const bool found = tryHostMethod(method, ProviderClass, arguments, result);
        EXPECT_EQ(result, nullptr);
        return found;
    }
    HostArray call(const HostMethod& method, const vantik::Array& argument) {
        vxArray_tag* arguments[] = {handleOf(Provider), handleOf(argument)};
        return callHostMethod(method, ProviderClass, arguments);
    }

    vcos::InternedName ProviderClass = vcos::internal::makeInterned(kProviderClassName);
    testsupport::ScriptedProvider Provider = testsupport::makeScriptedProvider(host(), std::string(100, 'x') + "yz");
};

TEST(HostMethods, HaveTheirNameClientResultsAndText) {
    struct Row {
        HostMethod Method;
        std::string Name;
        HostClient Client;
        int Results;
        const char* Missing; // null: nobody asks
    };
    // clang-format off
    const Row rows[] = {
        {kProviderStart,       "startInternal",       HostClient::System, 0, "vantik.net.http.io.ContentProvider.startInternal not found"},
        {kProviderGetData,     "getDataInternal",     HostClient::System, 1, "vantik.net.http.io.ContentProvider.getDataInternal not found"},
        {kConsumerStart,       "startInternal",       HostClient::System, 1, "vantik.net.http.io.ContentConsumer.startInternal not found"},
        {kConsumerPutData,     "putDataInternal",     HostClient::System, 1, "vantik.net.http.io.ContentConsumer.putDataInternal not found"},
        {kConsumerClose,       "closeInternal",       HostClient::System, 0, "vantik.net.http.io.ContentConsumer.closeInternal not found"},
        {kConsumerInterrupt,   "interruptInternal",   HostClient::System, 0, nullptr},
        {kConsumerSavePayload, "savePayloadInternal", HostClient::System, 0, nullptr},
        {kReporterUpdate,      "update",              HostClient::Public, 1, "vantik.net.http.internal.ProgressReporter.update not found"},
    };
    // clang-format on
    for (const Row& row : rows) {
        EXPECT_EQ(row.Method.Name, row.Name);
        EXPECT_EQ(row.Method.Client, row.Client) << row.Name;
        EXPECT_EQ(row.Method.ResultCount, row.Results) << row.Name;
        EXPECT_STREQ(row.Method.MissingText, row.Missing);
    }
}

TEST_F(HostObjectCall, ReturnsTheResultOfAMethodAndLeavesNoArray) {
    const vantik::Array wanted(std::uint64_t{100});
    const std::size_t before = vantik::Host::liveArrays();
    for (const std::string& piece : {std::string(100, 'x'), std::string("yz")}) {
        const HostArray result = call(kProviderGetData, wanted);
        ASSERT_EQ(vxGetDimensions(result.get())[0], piece.size());
        EXPECT_EQ(std::memcmp(vxGetData(std::as_const(result).get()), piece.data(), piece.size()), 0);
        EXPECT_EQ(vantik::Host::liveArrays(), before + 1);
    }
    EXPECT_EQ(vantik::Host::liveArrays(), before);
    EXPECT_THAT(Provider->Wanted, ElementsAre(100U, 100U));
}

TEST_F(HostObjectCall, MissingMethodIsNotFoundOrRaisesItsText) {
    Provider = testsupport::makeScriptedProvider(host(), "", {"getDataInternal"});
    EXPECT_FALSE(find(kProviderGetData, Provider));
    EXPECT_EQ(failureText([&] { call(kProviderGetData, vantik::Array(std::uint64_t{4})); }),
              internalError("vantik.net.http.io.ContentProvider.getDataInternal not found"));
}

TEST_F(HostObjectCall, NeitherThePublicClientNorAnObjectOfAnotherClassHasAnInternalMethod) {
    HostMethod asPublic = kProviderStart;
    asPublic.Client = HostClient::Public;
    EXPECT_FALSE(find(asPublic, Provider));
    EXPECT_EQ(Provider->Starts, 0);
    const auto consumer = testsupport::makeScriptedConsumer(host());
    EXPECT_FALSE(find(kProviderStart, consumer));
    EXPECT_TRUE(consumer->Calls.empty());
}

TEST_F(HostObjectCall, MethodWithoutAResultReturnsNullAndWhatItRaisesPasses) {
    EXPECT_TRUE(find(kProviderStart, Provider));
    EXPECT_EQ(Provider->Starts, 1);
    Provider->OnStart = [](int) { throw vantik::Failure({"test:provider", "Broken", {}, "it is broken"}); };
    EXPECT_EQ(failureText([&] { find(kProviderStart, Provider); }), "test:provider:Broken[]");
}

TEST_F(HostObjectCall, NothingIsNullOrWithoutElements) {
    EXPECT_TRUE(isNothing(nullptr));
    EXPECT_TRUE(isNothing(HostArray(vxCreateEmptyUnknownArrayNotOnArrayList())));
    EXPECT_TRUE(isNothing(HostArray(vxCreateNumericMatrix(1, 0, vxUINT8_CLASS, vxREAL))));
    EXPECT_TRUE(isNothing(HostArray(vxCreateNumericMatrix(0, 1, vxDOUBLE_CLASS, vxREAL))));
    EXPECT_FALSE(isNothing(HostArray(vxCreateDoubleScalar(0.0))));
}

TEST_F(HostObjectCall, ByteColumnHoldsTheBytesInOneColumn) {
    for (const std::string& bytes : {std::string("a\0\xff\n", 4), std::string()}) {
        const HostArray column = makeByteColumn(bytes);
        EXPECT_STREQ(vxGetClassName(column.get()), "uint8");
        ASSERT_EQ(vxGetNumberOfDimensions(column.get()), 2U);
        EXPECT_EQ(vxGetDimensions(column.get())[0], bytes.size());
        EXPECT_EQ(vxGetDimensions(column.get())[1], 1U);
        EXPECT_TRUE(bytes.empty() || std::memcmp(vxGetData(std::as_const(column).get()), bytes.data(), 4) == 0);
    }
}

TEST_F(HostObjectCall, CounterStartsAtZeroAndIsWrittenInPlace) {
    const HostArray scalar = makeUInt64Scalar();
    EXPECT_STREQ(vxGetClassName(scalar.get()), "uint64");
    EXPECT_EQ(uint64Of(scalar.get()), 0U);
    uint64Of(scalar.get()) = 18446744073709551615U;
    EXPECT_EQ(uint64Of(scalar.get()), 18446744073709551615U);
}

TEST_F(HostObjectCall, ElementCountIsTheProductOfTheDimensions) {
    EXPECT_EQ(arrayElementCount(handleOf(zeros(3, 4, vxDOUBLE_CLASS))), 12U);
    EXPECT_EQ(arrayElementCount(handleOf(zeros(5, 0, vxDOUBLE_CLASS))), 0U);
    EXPECT_EQ(arrayElementCount(handleOf(vantik::Array())), 0U);
    EXPECT_EQ(arrayElementCount(handleOf(vantik::Array(true))), 1U);
}

} // namespace
