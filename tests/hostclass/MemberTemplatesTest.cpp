#include "hostclass/MemberTemplates.h"

#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/RecordingClass.h"

#include <cstdint>

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

class MemberTemplates : public AdapterFixture {};

} // namespace

// A method that answers unasked raises the count for a caller who wants no result.
TEST_F(MemberTemplates, HandlerGetsTheInstanceTheResultsWantedAndTheInputsAfterTheObject) {
    for (const bool withAns : {false, true}) {
        RecordingClass definition(kAdapterClass);
        addMethodEntry(definition, {"note", {}, {"logical scalar"}, noteCall, withAns});
        const vcos::COSValue inputs[] = {{reinterpret_cast<std::uint64_t>(Adapter.array().handle())}, {41}};
        vcos::COSValue results[1];
        int resultCount = 0;
        definition.Methods.at(0)->invoke(resultCount, results, 2, inputs);
        EXPECT_EQ(resultCount, withAns ? 1 : 0);
        EXPECT_EQ(gSeen.Instance, &native());
        EXPECT_EQ(gSeen.ResultCount, resultCount);
        EXPECT_EQ(gSeen.InputCount, 1);
        EXPECT_EQ(gSeen.FirstInput, 41u);
    }
}
