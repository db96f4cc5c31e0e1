#include "hostclass/MethodTable.h"

#include "embedded/classes/MethodSignature.h"
#include "hostclass/ClassRegistration.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"

#include <string>
#include <tuple>
#include <vector>

namespace {

class MethodTable : public ClassFixture {};

using vantik::detail::MethodSignature;
using Words = std::vector<std::string>;
using Row = std::tuple<std::string, Words, Words, bool>; // name, outputs, inputs, answers unasked

const std::vector<Row> kExpected = {
    {"openConnection", {}, {}, false},
    {"openProxyConnection", {}, {"struct scalar"}, false},
    {"closeConnection", {}, {}, false},
    {"copyContentToByteArray", {"uint8 vector"}, {"logical scalar"}, true},
    {"copyContentToFile", {}, {"char vector"}, false},
    {"setRequestProperty", {}, {"char vector", "char vector"}, false},
    {"setFields", {}, {"struct vector"}, false},
    {"removeField", {}, {"char vector"}, false},
    {"getRequestFields", {"struct vector"}, {}, false},
    {"getRequestURI", {"char vector"}, {}, false},
    {"getRequestMethod", {"char vector"}, {}, false},
    {"getResponseFields", {"struct vector"}, {}, false},
    {"getResponseField", {"char vector"}, {"char vector"}, false},
    {"getRequestLine", {"char vector", "char vector", "char vector"}, {}, false},
    {"getStatusLine", {"char vector", "int32 scalar", "char vector"}, {}, false},
    {"setAuthenticationSchemes", {}, {"vantik.net.http.AuthenticationScheme vector", "logical scalar"}, false},
    {"closeAllConnections", {}, {}, false},
};

Words textsOf(const std::vector<vcos::InternedName>& names) {
    Words words;
    for (const vcos::InternedName name : names) {
        words.push_back(*name);
    }
    return words;
}

// The inputs behind the object, which must be the first one.
Words withoutObject(Words inputs, const std::string& objectWord) {
    if (inputs.empty() || inputs.front() != objectWord) {
        ADD_FAILURE() << "the object is not the first input";
        return inputs;
    }
    inputs.erase(inputs.begin());
    return inputs;
}

bool answersUnasked(const vcos::COSMethodInfo& method) {
    return dynamic_cast<const COSMethodWithAnsCLNRN<HTTPConnectionAdapter*>*>(&method) != nullptr;
}

} // namespace

TEST_F(MethodTable, EachRowBecomesOneMethodBehindTheConstructor) {
    RecordingClass definition(vcos::internal::makeInterned("a.b.C"));
    HTTPConnectionAdapterClassInfo().defineClass(definition);
    ASSERT_FALSE(definition.Methods.empty());
    EXPECT_NE(dynamic_cast<HTTPConnectionAdapterConstructorInfo*>(definition.Methods.front().get()), nullptr);
    std::vector<Row> methods;
    for (std::size_t i = 1; i < definition.Methods.size(); ++i) {
        const vcos::COSMethodInfo& method = *definition.Methods[i];
        const auto& signature = MethodSignature::of(*method.getMethodSignature());
        EXPECT_EQ(signature.OptionalInputs, 0);
        EXPECT_EQ(method.getMemberAccess(), vcos::MemberAccess::Public);
        EXPECT_EQ(method.getDescription(), "");
        EXPECT_TRUE(answersUnasked(method) ||
                    dynamic_cast<const COSMethodCLNRN<HTTPConnectionAdapter*>*>(&method) != nullptr);
        methods.emplace_back(method.getName(), textsOf(signature.Outputs),
                             withoutObject(textsOf(signature.Inputs), "a.b.C scalar"), answersUnasked(method));
    }
    EXPECT_THAT(methods, testing::ElementsAreArray(kExpected));
}

TEST_F(MethodTable, HostSeesTheSameMethods) {
    const vantik::ClassDescription description = host().describe(kAdapterClass);
    ASSERT_FALSE(description.Methods.empty());
    const vantik::MethodDescription& constructor = description.Methods.front();
    EXPECT_EQ(constructor.Name, "HTTPConnectionAdapter");
    EXPECT_EQ(constructor.Inputs, Words{"logical scalar"});
    EXPECT_EQ(constructor.Outputs, Words{kAdapterClass});
    EXPECT_EQ(constructor.OptionalInputs, 1);
    std::vector<Row> methods;
    for (std::size_t i = 1; i < description.Methods.size(); ++i) {
        const vantik::MethodDescription& method = description.Methods[i];
        EXPECT_TRUE(method.Declared);
        methods.emplace_back(method.Name, method.Outputs,
                             withoutObject(method.Inputs, std::string(kAdapterClass) + " scalar"),
                             method.Name == "copyContentToByteArray");
    }
    EXPECT_THAT(methods, testing::ElementsAreArray(kExpected));
}

TEST_F(MethodTable, ClassWithoutANameStillHasItsObjectInput) {
    RecordingClass definition(nullptr);
    addMethodEntry(definition, methodTable().front());
    EXPECT_EQ(textsOf(MethodSignature::of(*definition.Methods.at(0)->getMethodSignature()).Inputs), Words{"scalar"});
}

namespace {

int gSeenResultCount;
int gSeenInputCount;
std::uint64_t gSeenFirstInput;
const HTTPConnectionAdapter* gSeenInstance;

void noteCall(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue*, int inputCount,
              const vcos::COSValue* inputs) {
    gSeenInstance = adapter;
    gSeenResultCount = resultCount;
    gSeenInputCount = inputCount;
    gSeenFirstInput = inputs[0].Bits;
}

// Calls a method of one input for no result, and gives the count that it reports.
int callForNothing(bool withAns, const vantik::Object& object) {
    RecordingClass definition(vcos::internal::makeInterned(kAdapterClass));
    addMethodEntry(definition, {"note", {}, {"logical scalar"}, noteCall, withAns});
    const vcos::COSValue inputs[] = {{reinterpret_cast<std::uint64_t>(object.array().handle())}, {41}};
    vcos::COSValue results[1];
    int resultCount = 0;
    definition.Methods.at(0)->invoke(resultCount, results, 2, inputs);
    return resultCount;
}

} // namespace

TEST_F(MethodTable, HandlerGetsTheInstanceAndTheInputsBehindIt) {
    const vantik::Object adapter = makeAdapter();
    EXPECT_EQ(callForNothing(false, adapter), 0);
    EXPECT_EQ(gSeenInstance, &native(adapter));
    EXPECT_EQ(gSeenResultCount, 0);
    EXPECT_EQ(gSeenInputCount, 1);
    EXPECT_EQ(gSeenFirstInput, 41u);
}

TEST_F(MethodTable, MethodThatAnswersUnaskedRaisesTheCountForItsCaller) {
    const vantik::Object adapter = makeAdapter();
    EXPECT_EQ(callForNothing(true, adapter), 1);
    EXPECT_EQ(gSeenResultCount, 1);
}
