#include "embedded/text/NearestName.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(NearestNames, AreCloseOrNone) {
    const std::vector<std::string> known{"URL", "Username", "ProxyUsername", "ResponseCode", "Payload"};
    const auto nearest = [&](std::string_view text) { return vantik::detail::nearestName(text, known); };
    EXPECT_EQ(nearest("Usrname"), "Username");
    EXPECT_EQ(nearest("username"), "Username");
    EXPECT_EQ(nearest("url"), "") << "three changes of case in three letters may be anything";
    EXPECT_EQ(nearest("Url"), "URL");
    EXPECT_EQ(nearest("Responsecode"), "ResponseCode");
    EXPECT_EQ(nearest("Colour"), "");
    EXPECT_EQ(nearest(""), "");
    EXPECT_EQ(nearest(std::string(100000, 'x')), "");
}
