#include "hostcalls/HostObjectCall.h"

#include "tests/streaming/CopierFixture.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>

using namespace matrix::detail::noninlined::vx_array_api;
using namespace streamingtest;
using testing::ElementsAre;

namespace {

class HostObjectCall : public testsupport::ScopeFixture {
protected:
    vcos::InternedName providerClass() { return vcos::internal::makeInterned(kProviderClassName); }
};

struct MethodCase {
    const char* Label;
    HostMethod Method;
    const char* Name;
    HostClient Client;
    int Results;
    const char* Missing; // null: nobody asks
};

void PrintTo(const MethodCase& row, std::ostream* out) {
    *out << row.Label;
}

class HostMethodRow : public testing::TestWithParam<MethodCase> {};

TEST_P(HostMethodRow, NamesMethodClientResultAndText) {
    const MethodCase& row = GetParam();
    EXPECT_STREQ(row.Method.Name, row.Name);
    EXPECT_EQ(row.Method.Client, row.Client);
    EXPECT_EQ(row.Method.ResultCount, row.Results);
    EXPECT_STREQ(row.Method.MissingText, row.Missing);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, HostMethodRow, testing::Values(
    MethodCase{"ProviderStart", kProviderStart, "startInternal", HostClient::System, 0, "vantik.net.http.io.ContentProvider.startInternal not found"},
    MethodCase{"ProviderGetData", kProviderGetData, "getDataInternal", HostClient::System, 1, "vantik.net.http.io.ContentProvider.getDataInternal not found"},
    MethodCase{"ConsumerStart", kConsumerStart, "startInternal", HostClient::System, 1, "vantik.net.http.io.ContentConsumer.startInternal not found"},
    MethodCase{"ConsumerPutData", kConsumerPutData, "putDataInternal", HostClient::System, 1, "vantik.net.http.io.ContentConsumer.putDataInternal not found"},
    MethodCase{"ConsumerClose", kConsumerClose, "closeInternal", HostClient::System, 0, "vantik.net.http.io.ContentConsumer.closeInternal not found"},
    MethodCase{"ConsumerInterrupt", kConsumerInterrupt, "interruptInternal", HostClient::System, 0, nullptr},
    MethodCase{"ConsumerSavePayload", kConsumerSavePayload, "savePayloadInternal", HostClient::System, 0, nullptr},
    MethodCase{"ReporterUpdate", kReporterUpdate, "update", HostClient::Public, 1, "vantik.net.http.internal.ProgressReporter.update not found"}),
    [](const auto& info) { return std::string(info.param.Label); });
// clang-format on

TEST_F(HostObjectCall, GivesTheResultOfAMethodThatIsThere) {
    const auto provider = testsupport::makeScriptedProvider(host(), "abcdef");
    const vantik::Array wanted(std::uint64_t{4});
    vxArray_tag* arguments[] = {handleOf(provider), handleOf(wanted)};
    const HostArray result = callHostMethod(kProviderGetData, providerClass(), arguments);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(vxGetDimensions(result.get())[0], 4U);
    EXPECT_EQ(std::memcmp(vxGetData(static_cast<const vxArray_tag*>(result.get())), "abcd", 4), 0);
    EXPECT_THAT(provider->Wanted, ElementsAre(4U));
}

TEST_F(HostObjectCall, MethodWithoutAResultGivesNull) {
    const auto provider = testsupport::makeScriptedProvider(host());
    vxArray_tag* arguments[] = {handleOf(provider)};
    const HostArray result = callHostMethod(kProviderStart, providerClass(), arguments);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(provider->Starts, 1);
}

TEST_F(HostObjectCall, AskingForAMissingMethodSaysSo) {
    const auto provider = testsupport::makeScriptedProvider(host(), "", {"getDataInternal"});
    vxArray_tag* arguments[] = {handleOf(provider), nullptr};
    HostArray result;
    EXPECT_FALSE(tryHostMethod(kProviderGetData, providerClass(), arguments, result));
    EXPECT_EQ(result, nullptr);
}

TEST_F(HostObjectCall, NeedingAMissingMethodRaisesItsText) {
    const auto provider = testsupport::makeScriptedProvider(host(), "", {"getDataInternal"});
    vxArray_tag* arguments[] = {handleOf(provider), nullptr};
    EXPECT_EQ(internalErrorOf([&] { callHostMethod(kProviderGetData, providerClass(), arguments); }),
              "vantik.net.http.io.ContentProvider.getDataInternal not found");
}

TEST_F(HostObjectCall, InternalMethodsAreHiddenFromThePublicClient) {
    const auto provider = testsupport::makeScriptedProvider(host(), "abc");
    vxArray_tag* arguments[] = {handleOf(provider)};
    HostMethod asPublic = kProviderStart;
    asPublic.Client = HostClient::Public;
    HostArray result;
    EXPECT_FALSE(tryHostMethod(asPublic, providerClass(), arguments, result));
    EXPECT_EQ(provider->Starts, 0);
}

TEST_F(HostObjectCall, AnObjectOfAnotherClassHasNoSuchMethod) {
    const auto consumer = testsupport::makeScriptedConsumer(host());
    vxArray_tag* arguments[] = {handleOf(consumer)};
    HostArray result;
    EXPECT_FALSE(tryHostMethod(kProviderStart, providerClass(), arguments, result));
    EXPECT_TRUE(consumer->Calls.empty());
}

TEST_F(HostObjectCall, WhatAMethodRaisesPasses) {
    const auto provider = testsupport::makeScriptedProvider(host());
    provider->OnStart = [](int) { throw vantik::Failure({"test:provider", "Broken", {}, "it is broken"}); };
    vxArray_tag* arguments[] = {handleOf(provider)};
    EXPECT_THAT(hostFailureOf([&] { callHostMethod(kProviderStart, providerClass(), arguments); }),
                testing::StartsWith("test:provider:Broken"));
}

TEST_F(HostObjectCall, CallsLeaveNoArrayBehind) {
    const auto provider = testsupport::makeScriptedProvider(host(), std::string(100, 'x'));
    const vantik::Array wanted(std::uint64_t{10});
    vxArray_tag* arguments[] = {handleOf(provider), handleOf(wanted)};
    const std::size_t before = vantik::Host::liveArrays();
    for (int i = 0; i < 5; ++i) {
        const HostArray result = callHostMethod(kProviderGetData, providerClass(), arguments);
        EXPECT_EQ(vantik::Host::liveArrays(), before + 1);
    }
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

TEST_F(HostObjectCall, NothingIsNullOrWithoutElements) {
    EXPECT_TRUE(isNothing(nullptr));
    EXPECT_TRUE(isNothing(HostArray(vxCreateEmptyUnknownArrayNotOnArrayList())));
    EXPECT_TRUE(isNothing(HostArray(vxCreateNumericMatrix(1, 0, vxUINT8_CLASS, vxREAL))));
    EXPECT_TRUE(isNothing(HostArray(vxCreateNumericMatrix(0, 1, vxDOUBLE_CLASS, vxREAL))));
    EXPECT_FALSE(isNothing(HostArray(vxCreateDoubleScalar(0.0))));
}

TEST_F(HostObjectCall, ByteColumnHoldsTheBytesInOneColumn) {
    const std::string bytes("a\0\xff\n", 4);
    const HostArray column = makeByteColumn(bytes);
    EXPECT_STREQ(vxGetClassName(column.get()), "uint8");
    ASSERT_EQ(vxGetNumberOfDimensions(column.get()), 2U);
    EXPECT_EQ(vxGetDimensions(column.get())[0], 4U);
    EXPECT_EQ(vxGetDimensions(column.get())[1], 1U);
    EXPECT_EQ(std::memcmp(vxGetData(static_cast<const vxArray_tag*>(column.get())), bytes.data(), 4), 0);
}

TEST_F(HostObjectCall, NoBytesAreAColumnWithoutRows) {
    const HostArray column = makeByteColumn({});
    EXPECT_STREQ(vxGetClassName(column.get()), "uint8");
    EXPECT_EQ(vxGetDimensions(column.get())[0], 0U);
    EXPECT_EQ(vxGetDimensions(column.get())[1], 1U);
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
