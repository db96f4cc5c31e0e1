#include "embedded/arrays/CallFrame.h"

#include "ArrayFixture.h"

#include <random>
#include <thread>

using namespace matrix::detail::noninlined::vx_array_api;
using vantik::detail::CallFrame;

namespace {

vxArray_tag* number() {
    return vxCreateDoubleScalar(1);
}

// An object that makes an array while it goes, as a native instance may.
class LastWords final : public vcos::COSInterface {
public:
    void* getInstanceData(vcos::InternedName) override { return nullptr; }

private:
    void addReference() noexcept override {}
    void release() noexcept override { number(); }
};

class CallFrames : public ArrayFixture {
protected:
    std::size_t reclaimedHere() const { return CallFrame::reclaimed() - Before; }

private:
    std::size_t Before = CallFrame::reclaimed();
};

} // namespace

TEST_F(CallFrames, WhatIsLeftIsReleasedAndCounted) {
    LastWords object;
    {
        CallFrame frame;
        number();
        vxCreateString("text");
        vxCreateNumericMatrix(3, 1, vxUINT8_CLASS, vxREAL);
        std::vector<vcos::COSInterfacePtr> objects;
        objects.emplace_back(&object);
        vantik::detail::makeObjectArray("example.Thing", std::move(objects));
        EXPECT_EQ(liveArrays(), 4u);
    }
    EXPECT_EQ(liveArrays(), 0u);
    EXPECT_EQ(reclaimedHere(), 5u) << "and what was made while the frame ended";
}

TEST_F(CallFrames, ArraysMadeOutsideOrWithoutAClassBelongToTheirMaker) {
    EXPECT_EQ(CallFrame::current(), nullptr);
    const ArrayOwner outside(number());
    ArrayOwner nothing;
    {
        CallFrame frame;
        EXPECT_EQ(CallFrame::current(), &frame);
        nothing.reset(vxCreateEmptyUnknownArrayNotOnArrayList());
    }
    EXPECT_EQ(liveArrays(), 2u);
    EXPECT_EQ(reclaimedHere(), 0u);
}

TEST_F(CallFrames, PersistentArrayLeavesTheFrameAndTemporaryOneJoinsIt) {
    ArrayOwner kept;
    vxArray_tag* handedOver = number();
    {
        CallFrame frame;
        kept.reset(vxCreateSharedDataCopy(number()));
        for (int twice = 0; twice < 2; ++twice) {
            vxSetArrayScope(kept.get(), vxPERSISTENT_SCOPE);
            vxSetArrayScope(handedOver, vxTEMPORARY_SCOPE);
        }
    }
    EXPECT_EQ(reclaimedHere(), 2u);
    EXPECT_EQ(liveArrays(), 1u);
    vxSetArrayScope(kept.get(), vxTEMPORARY_SCOPE); // no call is running
    EXPECT_EQ(vxGetScalar(kept.get()), 1.0);
}

TEST_F(CallFrames, ResultGoesToTheEnclosingCallAndFromTheOutermostToItsReceiver) {
    const ArrayOwner persistent(number());
    ArrayOwner received;
    {
        CallFrame outer;
        vxArray_tag* ofOuter = number();
        vxArray_tag* result = nullptr;
        {
            CallFrame inner;
            number();
            result = number();
            inner.handOut(result);
            for (vxArray_tag* ofOthers : {static_cast<vxArray_tag*>(nullptr), ofOuter, persistent.get()}) {
                inner.handOut(ofOthers); // changes nothing
            }
        }
        EXPECT_EQ(reclaimedHere(), 1u);
        EXPECT_EQ(vxGetScalar(result), 1.0);
        EXPECT_EQ(CallFrame::current(), &outer);
        received.reset(number());
        outer.handOut(received.get());
    }
    EXPECT_EQ(reclaimedHere(), 3u);
    EXPECT_EQ(liveArrays(), 2u);
    EXPECT_EQ(vxGetScalar(received.get()), 1.0);
}

TEST_F(CallFrames, EachThreadHasItsOwn) {
    CallFrame frame;
    std::thread([] {
        EXPECT_EQ(CallFrame::current(), nullptr);
        const ArrayOwner array(number());
        CallFrame own;
        EXPECT_EQ(CallFrame::current(), &own);
        number();
    }).join();
    EXPECT_EQ(CallFrame::current(), &frame);
    EXPECT_EQ(reclaimedHere(), 1u);
}

// Whatever the order of linking and unlinking, every array is released once.
TEST_F(CallFrames, AnyOrderOfReleasesWorks) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 200; ++round) {
        std::vector<ArrayOwner> persistent;
        {
            CallFrame frame;
            std::vector<vxArray_tag*> linked;
            for (int step = 0; step < 60; ++step) {
                if (linked.empty() || random() % 3 == 0) {
                    linked.push_back(number());
                    continue;
                }
                const std::size_t at = random() % linked.size();
                if (random() % 2 == 0) {
                    matrix::destroyArray(linked[at]);
                } else {
                    vxSetArrayScope(linked[at], vxPERSISTENT_SCOPE);
                    persistent.emplace_back(linked[at]);
                }
                linked.erase(linked.begin() + static_cast<std::ptrdiff_t>(at));
            }
        }
        ASSERT_EQ(liveArrays(), persistent.size());
    }
}
