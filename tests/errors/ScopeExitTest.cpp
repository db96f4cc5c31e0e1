#include "errors/ScopeExit.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace netrove;

TEST(ScopeExit, RunsWhileAFailurePassesAndWhatItRaisesIsDropped) {
    bool ran = false;
    EXPECT_THROW(
        {
            const ScopeExit leave([&] {
                ran = true;
                throw std::runtime_error("in the guard");
            });
            throw std::out_of_range("the failure");
        },
        std::out_of_range);
    EXPECT_TRUE(ran);
    EXPECT_NO_THROW({ const ScopeExit leave([] { throw std::runtime_error("nobody sees this"); }); });
    EXPECT_NO_THROW({ const ScopeExit leave([] { throw 7; }); });
}

TEST(ScopeExit, LaterGuardsRunFirst) {
    std::string order;
    {
        const ScopeExit first([&] { order += "first "; });
        const ScopeExit second([&] { order += "second "; });
        EXPECT_EQ(order, "") << "only on the way out";
    }
    EXPECT_EQ(order, "second first ");
}
