#include "cli/failures/LoginHint.h"

#include <gtest/gtest.h>
#include <netrove/response.h>

#include <string>
#include <vector>

namespace {

using namespace netrove::cli;

using Words = std::vector<std::string>;

std::string hint(int status, const Words& challenges, const Words& allowed) {
    netrove::Response response;
    response.status = status;
    for (const std::string& challenge : challenges) {
        response.fields.add(status == 407 ? "Proxy-Authenticate" : "WWW-Authenticate", challenge);
    }
    const netrove::Error error(netrove::ErrorKind::Status, "NETROVE:client:StatusError", {}, "it said so");
    return loginHint(error.with(response, true), {.Schemes = allowed, .ProxySchemes = allowed});
}

TEST(LoginHint, NamesWhatIsOfferedWhereNothingOfItIsAllowed) {
    EXPECT_EQ(hint(401, {"Basic realm=\"x\""}, {"Digest"}), "the server offers only basic; --auth basic allows that");
    EXPECT_EQ(hint(401, {"Negotiate", "NTLM"}, {"basic", "digest"}),
              "the server offers only ntlm and negotiate; --auth ntlm,negotiate allows that");
    EXPECT_EQ(hint(401, {"Bearer, realm=\"x\" , DIGEST nonce=\"a\""}, {"Basic"}),
              "the server offers only digest; --auth digest allows that");
    EXPECT_EQ(hint(407, {"Basic realm=\"x\""}, {"Digest"}),
              "the proxy offers only basic; --proxy-auth basic allows that");
}

TEST(LoginHint, OtherwiseTheLoginItselfWasRefused) {
    EXPECT_EQ(hint(401, {"Digest realm=\"say, Basic x\", nonce=\"a\"", "Basic realm=\"x\""}, {"digest"}),
              "check name and password");
    EXPECT_EQ(hint(401, {}, {"basic"}), "check name and password");
    EXPECT_EQ(hint(401, {"Digest realm=\", Basic x\""}, {"Basic"}),
              "the server offers only digest; --auth digest allows that");
}

TEST(LoginHint, IsForThoseWhoLoggedIn) {
    EXPECT_EQ(hint(401, {"Basic realm=\"x\""}, {}), "");
    EXPECT_EQ(hint(404, {}, {"basic"}), "");
}

} // namespace
