#include "streaming/ProgressReporterCall.h"

#include "embedded/scope/InterruptOrigin.h"
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"
#include "vantik/HostClass.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace matrix::detail::noninlined::vx_array_api;
using namespace streamingtest;
using testing::ElementsAre;

namespace {

constexpr const char* kNotScalar = "Expected ProgressReporter.update to return scalar.";
constexpr const char* kNotFound = "vantik.net.http.internal.ProgressReporter.update not found";

class ProgressReporterCallTest : public testsupport::ScopeFixture {
protected:
    // A reporter that gives this answer.
    testsupport::ScriptedReporter answering(vantik::Array answer) {
        auto reporter = testsupport::makeScriptedReporter(host());
        reporter->OnUpdate = [answer = std::move(answer)](int, std::uint64_t) { return answer; };
        return reporter;
    }

    static void updateOnce(const vantik::Array& reporter) {
        ProgressReporterCall call(sharedOf(reporter));
        call.update(1);
    }
};

TEST_F(ProgressReporterCallTest, WithoutAReporterNothingHappens) {
    ProgressReporterCall call(nullptr);
    EXPECT_NO_THROW(call.update(100));
}

TEST_F(ProgressReporterCallTest, TrueMeansCarryOn) {
    const auto reporter = answering(true);
    ProgressReporterCall call(sharedOf(reporter));
    call.update(0);
    call.update(16384);
    call.update(100); // after a rewind
    call.update(18446744073709551615U);
    EXPECT_THAT(reporter->Counts, ElementsAre(0U, 16384U, 100U, 18446744073709551615U));
}

TEST_F(ProgressReporterCallTest, FalseStopsOnBehalfOfTheProgram) {
    const auto reporter = answering(false);
    try {
        updateOnce(reporter);
        FAIL() << "it did not stop";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_TRUE(vantik::detail::requestedByProgram(stop));
    }
}

TEST_F(ProgressReporterCallTest, AnswerWithoutExactlyOneElementFails) {
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering(vantik::Array())); }), kNotScalar);
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering(vantik::Array::logicals({}))); }), kNotScalar);
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering(vantik::Array::logicals({true, true}))); }), kNotScalar);
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering(zeros(2, 2, vxDOUBLE_CLASS))); }), kNotScalar);
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering("yes")); }), kNotScalar);
}

TEST_F(ProgressReporterCallTest, NoAnswerAtAllFails) {
    vantik::HostClass("test.silent.Reporter")
        .derivesFrom("vantik.net.http.internal.ProgressReporter")
        .method("update", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .defineIn(host());
    const vantik::Object reporter = host().create("test.silent.Reporter");
    EXPECT_EQ(internalErrorOf([&] { updateOnce(reporter); }), kNotScalar);
}

TEST_F(ProgressReporterCallTest, OnlyTheFirstByteOfTheAnswerCounts) {
    EXPECT_NO_THROW(updateOnce(answering(std::int32_t{1})));
    EXPECT_NO_THROW(updateOnce(answering(byteMatrix(1, 1, "\x80"))));
    EXPECT_NO_THROW(updateOnce(answering("y")));
    EXPECT_NO_THROW(updateOnce(answering(0.1)));                                                  // 9a 99 99 …
    EXPECT_THROW(updateOnce(answering(1.0)), Zentorak::System::InterruptException);               // 00 00 … f0 3f
    EXPECT_THROW(updateOnce(answering(std::int32_t{256})), Zentorak::System::InterruptException); // 00 01 00 00
    EXPECT_THROW(updateOnce(answering(byteMatrix(1, 1, std::string(1, '\0')))), Zentorak::System::InterruptException);
}

TEST_F(ProgressReporterCallTest, AnswerWithoutPlainElementsFails) {
    EXPECT_EQ(internalErrorOf([&] { updateOnce(answering(vantik::Array::structure({{"Go", true}}))); }), kNotScalar);
    const auto object = testsupport::makeScriptedReporter(host());
    const auto reporter = testsupport::makeScriptedReporter(host());
    reporter->OnUpdate = [&](int, std::uint64_t) -> vantik::Array { return object; };
    EXPECT_EQ(internalErrorOf([&] { updateOnce(reporter); }), kNotScalar);
}

TEST_F(ProgressReporterCallTest, MissingMethodFails) {
    const auto reporter = testsupport::makeScriptedReporter(host(), {"update"});
    EXPECT_EQ(internalErrorOf([&] { updateOnce(reporter); }), kNotFound);
}

TEST_F(ProgressReporterCallTest, WhatIsNoObjectHasNoMethod) {
    EXPECT_EQ(internalErrorOf([&] { updateOnce(vantik::Array(1.0)); }), kNotFound);
    const SharedHostArray nothing = HostArray(vxCreateEmptyUnknownArrayNotOnArrayList()); // its class has no name
    EXPECT_EQ(internalErrorOf([&] { ProgressReporterCall(nothing).update(1); }), kNotFound);
}

// The reporter is addressed by its own class and not by the base class.
TEST_F(ProgressReporterCallTest, ReporterOfAnyClassIsCalled) {
    std::vector<std::uint64_t> counts;
    vantik::HostClass("test.unrelated.Reporter")
        .method("update",
                [&](std::span<const vantik::Array> inputs) {
                    counts.push_back(inputs[1].unsignedInteger());
                    return std::vector<vantik::Array>{true};
                })
        .defineIn(host());
    const vantik::Object reporter = host().create("test.unrelated.Reporter");
    updateOnce(reporter);
    EXPECT_THAT(counts, ElementsAre(1U));
}

TEST_F(ProgressReporterCallTest, WhatTheReporterRaisesPasses) {
    const auto reporter = testsupport::makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) -> vantik::Array {
        throw vantik::Failure({"test:reporter", "Tired", {}, "enough"});
    };
    EXPECT_THAT(hostFailureOf([&] { updateOnce(reporter); }), testing::StartsWith("test:reporter:Tired"));
}

TEST_F(ProgressReporterCallTest, CountIsAUInt64ScalarBesideTheReporter) {
    std::vector<vantik::Array> seen;
    vantik::HostClass("test.keeping.Reporter")
        .derivesFrom("vantik.net.http.internal.ProgressReporter")
        .method("update",
                [&](std::span<const vantik::Array> inputs) {
                    EXPECT_EQ(inputs.size(), 2U);
                    seen.push_back(inputs[1]);
                    return std::vector<vantik::Array>{true};
                })
        .defineIn(host());
    const vantik::Object reporter = host().create("test.keeping.Reporter");
    ProgressReporterCall call(sharedOf(reporter));
    call.update(10);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].className(), "uint64");
    EXPECT_THAT(seen[0].dimensions(), ElementsAre(1U, 1U));
}

// A reporter on the class system itself, which keeps handles on the very contents that it is given. (Callables of the
// embedding API get scalars of their own.)
class KeepingUpdate : public vcos::COSMethodBase {
public:
    KeepingUpdate(vcos::InternedName className, std::vector<HostArray>& kept)
        : COSMethodBase(className, vcos::internal::makeInterned("update"), vcos::MemberAccess::Public, ""), Kept(kept) {
    }

    void invoke(int&, vcos::COSValue* results, int, const vcos::COSValue* inputs) override {
        Kept.emplace_back(vxCreateSharedDataCopy(reinterpret_cast<vxArray_tag*>(inputs[1].Bits)));
        vxSetArrayScope(Kept.back().get(), vxPERSISTENT_SCOPE);
        results[0].Bits = reinterpret_cast<std::uint64_t>(vxCreateNumericMatrix(1, 1, vxUINT8_CLASS, vxREAL));
        *static_cast<std::uint8_t*>(vxGetData(reinterpret_cast<vxArray_tag*>(results[0].Bits))) = 1;
    }

private:
    std::vector<HostArray>& Kept;
};

class KeepingReporter : public vcos::COSClassInfo {
public:
    explicit KeepingReporter(std::vector<HostArray>& kept) : Kept(kept) {}
    std::string getName() const override { return "Reporter"; }
    void defineClass(vcos::COSClass& definition) override {
        definition.addMethod(new KeepingUpdate(definition.getFullName(), Kept));
    }
    void* createInstance() override { return this; }
    void destroyInstance(void*) override {}
    bool isHandle() const override { return true; }
    bool isConstructible() const override { return true; }

private:
    std::vector<HostArray>& Kept;
};

class KeepingPackage : public vcos::COSNamespaceInfo {
public:
    std::string getName() const override { return "keeping"; }
};

TEST_F(ProgressReporterCallTest, CountThatAReporterHasKeptStaysWhatItWas) {
    std::vector<HostArray> kept;
    vcos::COSPackage::addNamespace(new KeepingPackage);
    vcos::COSPackage::getNamespace(vcos::internal::makeInterned("keeping"))->addClass(new KeepingReporter(kept), 0, 2);
    const vantik::Object reporter = host().create("keeping.Reporter");
    ProgressReporterCall call(sharedOf(reporter));
    for (const std::uint64_t bytes : {10U, 20U, 30U}) {
        call.update(bytes);
    }
    ASSERT_EQ(kept.size(), 3U);
    EXPECT_EQ(vxGetScalar(kept[0].get()), 10.0);
    EXPECT_EQ(vxGetScalar(kept[1].get()), 20.0);
    EXPECT_EQ(vxGetScalar(kept[2].get()), 30.0);
}

TEST_F(ProgressReporterCallTest, UpdatesLeaveNoArrayBehind) {
    const auto reporter = answering(true);
    ProgressReporterCall call(sharedOf(reporter));
    const std::size_t before = vantik::Host::liveArrays();
    for (std::uint64_t i = 0; i < 10; ++i) {
        call.update(i);
    }
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

} // namespace
