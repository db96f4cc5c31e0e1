#include "hostclass/MemberTemplates.h"

#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"

#include <cstdint>
#include <string>

namespace {

struct SeenCall {
    const HTTPConnectionAdapter* Instance = nullptr;
    int ResultCount = -1;
    int InputCount = -1;
    std::uint64_t FirstInput = 0;
};
SeenCall gSeen;

void noteCall(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue*, int inputCount,
              const vcos::COSValue* inputs) {
    gSeen = {adapter, resultCount, inputCount, inputs[0].Bits};
}

class MemberTemplates : public AdapterFixture {
protected:
    // Calls a method of one input for no result, and returns the count that it reports.
    int callForNothing(bool withAns) {
        RecordingClass definition(vcos::internal::makeInterned(kAdapterClass));
        addMethodEntry(definition, {"note", {}, {"logical scalar"}, noteCall, withAns});
        const vcos::COSValue inputs[] = {{reinterpret_cast<std::uint64_t>(Adapter.array().handle())}, {41}};
        vcos::COSValue results[1];
        int resultCount = 0;
        definition.Methods.at(0)->invoke(resultCount, results, 2, inputs);
        return resultCount;
    }
};

} // namespace

TEST_F(MemberTemplates, HandlerGetsTheInstanceAndTheInputsAfterIt) {
    EXPECT_EQ(callForNothing(false), 0);
    EXPECT_EQ(gSeen.Instance, &native());
    EXPECT_EQ(gSeen.ResultCount, 0);
    EXPECT_EQ(gSeen.InputCount, 1);
    EXPECT_EQ(gSeen.FirstInput, 41u);
}

TEST_F(MemberTemplates, MethodThatAnswersUnaskedRaisesTheCountForItsCaller) {
    EXPECT_EQ(callForNothing(true), 1);
    EXPECT_EQ(gSeen.ResultCount, 1);
}
