#include "client/exchange/Challenges.h"

#include <gtest/gtest.h>

using namespace netrove;

namespace {

struct ChallengeRow {
    std::string Name;
    std::vector<std::string> Fields;
    std::optional<Scheme> Chosen;
    std::vector<Scheme> Allowed = {Scheme::Basic, Scheme::Digest, Scheme::Ntlm, Scheme::Negotiate};
};

class Challenges : public ::testing::TestWithParam<ChallengeRow> {};

TEST_P(Challenges, NameTheSchemeToUse) {
    EXPECT_EQ(offeredScheme(GetParam().Fields, GetParam().Allowed), GetParam().Chosen);
}

INSTANTIATE_TEST_SUITE_P(
    Challenges, Challenges,
    ::testing::Values(ChallengeRow{"TheSafest", {"Basic realm=\"a\", Digest nonce=b", "NTLM"}, Scheme::Digest},
                      ChallengeRow{"OfThoseAllowed", {"Basic realm=a, Digest nonce=b"}, Scheme::Basic, {Scheme::Basic}},
                      ChallengeRow{"WithoutParameters", {"negotiate , x"}, Scheme::Negotiate},
                      ChallengeRow{"WithOtherLetters", {"DIGEST nonce=b"}, Scheme::Digest},
                      ChallengeRow{"InQuotes", {"Basic realm=\"\\\", Digest x\""}, Scheme::Basic},
                      ChallengeRow{"AsAParameter", {"Other x=y, Digest=1, NTLM=2"}, std::nullopt},
                      ChallengeRow{"InTheMiddle", {"Other Digest"}, std::nullopt},
                      ChallengeRow{"WithAQuote", {"Digest\"x\""}, std::nullopt},
                      ChallengeRow{"PartOfAWord", {"Digestive, XBasic"}, std::nullopt},
                      ChallengeRow{"BlanksAndCommas", {" ,, \t,=,"}, std::nullopt},
                      ChallengeRow{"None", {}, std::nullopt}),
    [](const auto& info) { return info.param.Name; });

} // namespace
