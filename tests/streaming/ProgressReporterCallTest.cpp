#include "streaming/ProgressReporterCall.h"

#include "embedded/scope/InterruptOrigin.h"
#include "host/Interrupt.h"
#include "tests/streaming/CopierFixture.h"
#include "vantik/HostClass.h"

#include <string>
#include <utility>
#include <vector>

using namespace matrix::detail::noninlined::vx_array_api;
using namespace streamingtest;

namespace {

const std::string kNotScalar = internalError("Expected ProgressReporter.update to return scalar.");
const std::string kNotFound = internalError("vantik.net.http.internal.ProgressReporter.update not found");

class ProgressReporterCallTest : public testsupport::ScopeFixture {
protected:
    // What one update fails with.
    static std::string failureOf(const vantik::Array& reporter) {
        return failureText([&] { ProgressReporterCall(sharedOf(reporter)).update(1); });
    }
    // The same of a reporter that answers with this.
    std::string failureOfAnswer(const vantik::Array& answer) {
        const auto reporter = testsupport::makeScriptedReporter(host());
        reporter->OnUpdate = [&](int, std::uint64_t) { return answer; };
        return failureOf(reporter);
    }
    // An object of a class with this method.
    vantik::Object reporterWith(const std::string& name, vantik::Method update) {
        vantik::HostClass(name).method("update", std::move(update)).defineIn(host());
        return host().create(name);
    }
};

TEST_F(ProgressReporterCallTest, WithoutAReporterNothingHappens) {
    EXPECT_NO_THROW(ProgressReporterCall(nullptr).update(100));
}

TEST_F(ProgressReporterCallTest, TrueMeansCarryOn) {
    const auto reporter = testsupport::makeScriptedReporter(host());
    ProgressReporterCall call(sharedOf(reporter));
    for (const std::uint64_t bytes : {0UL, 16384UL, 100UL, 18446744073709551615UL}) { // 100: after a rewind
        call.update(bytes);
    }
    EXPECT_THAT(reporter->Counts, ElementsAre(0U, 16384U, 100U, 18446744073709551615U));
}

TEST_F(ProgressReporterCallTest, FalseStopsOnBehalfOfTheProgram) {
    const auto reporter = testsupport::makeScriptedReporter(host());
    reporter->OnUpdate = [](int, std::uint64_t) { return vantik::Array(false); };
    try {
        ProgressReporterCall(sharedOf(reporter)).update(1);
        FAIL() << "it did not stop";
    } catch (const Zentorak::System::InterruptException& stop) {
        EXPECT_TRUE(vantik::detail::requestedByProgram(stop));
    }
}

TEST_F(ProgressReporterCallTest, OnlyTheFirstByteOfTheAnswerCountsAndItIsOnePlainElement) {
    const std::pair<vantik::Array, std::string> rows[] = {
        {std::int32_t{1}, "nothing"},
        {byteMatrix(1, 1, "\x80"), "nothing"},
        {"y", "nothing"},
        {0.1, "nothing"},               // 9a 99 99 …
        {1.0, kStopText},               // 00 00 … f0 3f
        {std::int32_t{256}, kStopText}, // 00 01 00 00
        {byteMatrix(1, 1, std::string(1, '\0')), kStopText},
        {vantik::Array(), kNotScalar},
        {vantik::Array::logicals({}), kNotScalar},
        {vantik::Array::logicals({true, true}), kNotScalar},
        {zeros(2, 2, vxDOUBLE_CLASS), kNotScalar},
        {"yes", kNotScalar},
        {vantik::Array::structure({{"Go", true}}), kNotScalar},
        {testsupport::makeScriptedReporter(host()), kNotScalar},
    };
    for (const auto& [answer, failure] : rows) {
        EXPECT_EQ(failureOfAnswer(answer), failure);
    }
    const vantik::Object silent = reporterWith(
        "test.silent.Reporter", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); });
    EXPECT_EQ(failureOf(silent), kNotScalar);
}

TEST_F(ProgressReporterCallTest, MissingMethodFailsAndWhatTheReporterRaisesPasses) {
    EXPECT_EQ(failureOf(testsupport::makeScriptedReporter(host(), {"update"})), kNotFound);
    EXPECT_EQ(failureOf(vantik::Array(1.0)), kNotFound);
    const SharedHostArray nothing = HostArray(vxCreateEmptyUnknownArrayNotOnArrayList()); // its class has no name
    EXPECT_EQ(failureText([&] { ProgressReporterCall(nothing).update(1); }), kNotFound);
    const vantik::Object tired =
        reporterWith("test.tired.Reporter", [](std::span<const vantik::Array>) -> std::vector<vantik::Array> {
            throw vantik::Failure({"test:reporter", "Tired", {}, "enough"});
        });
    EXPECT_EQ(failureOf(tired), "test:reporter:Tired[]");
}

// The reporter is addressed by its own class and not by the base class.
TEST_F(ProgressReporterCallTest, ReporterOfAnyClassGetsAUInt64ScalarBesideItself) {
    std::vector<std::uint64_t> counts;
    const vantik::Object reporter = reporterWith("test.unrelated.Reporter", [&](std::span<const vantik::Array> inputs) {
        EXPECT_EQ(inputs.size(), 2U);
        EXPECT_EQ(inputs[1].className(), "uint64");
        EXPECT_THAT(inputs[1].dimensions(), ElementsAre(1U, 1U));
        counts.push_back(inputs[1].unsignedInteger());
        return std::vector<vantik::Array>{true};
    });
    EXPECT_EQ(failureOf(reporter), "nothing");
    EXPECT_THAT(counts, ElementsAre(1U));
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
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(vxGetScalar(kept[i].get()), 10.0 * static_cast<double>(i + 1));
    }
}

} // namespace
