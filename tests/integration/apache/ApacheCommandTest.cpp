// The program against Apache httpd: credentials on the command line.
#include "tests/integration/apache/Apache.h"
#include "tests/support/crypto/Digest.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::digestOf;
using testsupport::Outcome;
using testsupport::run;

using Texts = std::vector<std::string>;

class ApacheCommand : public testing::Test {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Apache>(); }
    static void TearDownTestSuite() { Server.reset(); }
    static Apache& server() { return *Server; }

    static std::string login(const std::string& password = kKnownPassword) {
        return std::string(kKnownUser) + ":" + password;
    }

    const testsupport::TemporaryFolder Folder;

private:
    inline static std::unique_ptr<Apache> Server;
};

TEST_F(ApacheCommand, GetsAPageBehindEitherScheme) {
    for (const std::string folder : {"basic", "digest"}) {
        const Outcome outcome =
            run({"get", "-u", login(), "-o", "-", server().url("/" + folder + "/page?get-" + folder)});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(digestOf(outcome.Out), digestOf(server().page()));
        EXPECT_EQ(outcome.Err, "");
        EXPECT_EQ(server().requests("get-" + folder, 2), (Texts{"GET 401", "GET 200"}));
    }
}

TEST_F(ApacheCommand, OneSchemeIsEnough) {
    for (const std::string scheme : {"basic", "digest"}) {
        const Outcome outcome =
            run({"get", "-u", login(), "--auth", scheme, "-o", "-", server().url("/" + scheme + "/page")});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(digestOf(outcome.Out), digestOf(server().page()));
    }
}

TEST_F(ApacheCommand, WrongPasswordFailsWhereAskedToAndTellsNoSecret) {
    const std::string url = server().url("/digest/page");
    const Outcome outcome = run({"get", "--fail", "-u", login("very-wrong"), url});
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, testing::StartsWith("netrove: "));
    EXPECT_THAT(outcome.Err, HasSubstr("401"));
    EXPECT_THAT(outcome.Err, testing::Not(HasSubstr("very-wrong")));
}

TEST_F(ApacheCommand, WrongPasswordWithoutFailGivesTheServersPage) {
    const Outcome outcome = run({"get", "-i", "-u", login("wrong"), server().url("/basic/page")});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_THAT(outcome.Out, testing::StartsWith("HTTP/1.1 401 Unauthorized"));
    EXPECT_THAT(outcome.Out, HasSubstr("<title>401 Unauthorized</title>"));
}

TEST_F(ApacheCommand, RefusalThroughTheOlderInterfaceIsAFailure) {
    const Outcome outcome = run({"get", "--simple", "-u", login("wrong"), server().url("/basic/page")});
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_THAT(outcome.Err, testing::StartsWith("netrove: VANTIK:webservices:StatusError: "));
}

TEST_F(ApacheCommand, NothingIsSavedOfARefusal) {
    const std::string file = Folder.file("page");
    EXPECT_EQ(run({"save", "--fail", server().url("/basic/page"), file}).Status, 22);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(run({"save", "--fail", "-u", login(), server().url("/basic/page"), file}).Status, 0);
    EXPECT_EQ(testsupport::digestOfFile(file), digestOf(server().page()));
}

TEST_F(ApacheCommand, StreamedContentThatWouldBeNeededTwiceIsAFailureThatSaysWhatToDo) {
    testsupport::writeFile(Folder.file("content"), testsupport::generated(300'000));
    const std::string url = server().url("/digest/echo");
    const Outcome refused = run({"send", "-T", Folder.file("content"), "-u", login(), "-o", "-", url});
    EXPECT_EQ(refused.Status, 26);
    EXPECT_EQ(refused.Out, "");
    EXPECT_THAT(refused.Err, HasSubstr("NETROVE:cli:ContentNotRewound"));
    EXPECT_THAT(refused.Err, HasSubstr("--auth"));

    const Outcome named =
        run({"send", "-T", Folder.file("content"), "-u", login(), "--auth", "digest", "-o", "-", url});
    EXPECT_EQ(named.Status, 0) << named.Err;
    EXPECT_EQ(digestOf(named.Out), digestOf(testsupport::generated(300'000)));

    const Outcome held =
        run({"send", "-X", "PUT", "--body-file", Folder.file("content"), "-u", login(), "-o", "-", url});
    EXPECT_EQ(held.Status, 0) << held.Err;
    EXPECT_EQ(digestOf(held.Out), digestOf(testsupport::generated(300'000)));
}

} // namespace
