#include "cli/logins/Netrc.h"

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>

namespace {

using namespace netrove::cli;
using Wanted = std::optional<std::string>;

// "user:password" for a host; nothing where there is no login.
Wanted found(const std::string& text, const std::string& host, const Wanted& user = std::nullopt) {
    const auto login = Netrc(text, "file").find(host, user);
    return login ? Wanted(login->User + ":" + login->Password) : std::nullopt;
}

struct LoginRow {
    const char* Text;
    const char* Host;
    Wanted User;
    Wanted Found;
};

TEST(Netrc, FindsTheLoginForAHost) {
    const char* two = "machine h login me password one\nmachine h login you password two\ndefault login all password d";
    const char* quoted = R"(machine h login "m e" password "p\"\\\n\t q")";
    const char* macro = "machine a login x password y\nmacdef init\nmachine h login no password no\n\n"
                        "machine h login me password pw";
    const char* comments = "# machine h login no password no\nmachine h # the host\n login me password #pw\n";
    const LoginRow rows[] = {
        {"machine h login me password pw", "h", {}, "me:pw"},
        {"machine\th\r\n\tlogin me\r\n\taccount acc\r\n\tpassword pw\r\n", "h", {}, "me:pw"},
        {"machine h login me password pw", "g", {}, {}},
        {"machine h login me password pw", "a.h", {}, {}},
        {"machine Example.ORG login me password pw", "example.org", {}, "me:pw"},
        {"machine ::1 login me password pw", "[::1]", {}, "me:pw"},
        {"machine h password pw login me", "h", {}, "me:pw"},
        {"machine h login me", "h", {}, "me:"},
        {"machine h password pw", "h", {}, {}},
        {"machine h password pw", "h", "me", "me:pw"},
        {two, "h", {}, "me:one"},
        {two, "h", "you", "you:two"},
        {two, "h", "else", {}},
        {two, "other", {}, "all:d"},
        {quoted, "h", {}, "m e:p\"\\\n\t q"},
        {macro, "h", {}, "me:pw"},
        {comments, "h", {}, "me:#pw"},
        {"macdef only", "h", {}, {}},
        {"", "h", {}, {}},
    };
    for (const LoginRow& row : rows) {
        EXPECT_EQ(found(row.Text, row.Host, row.User), row.Found) << row.Text;
    }
}

TEST(Netrc, RefusesWhatItWouldMisread) {
    const std::pair<const char*, const char*> rows[] = {
        {"login me", "file:1: the netrc file does not begin with 'machine' or 'default'"},
        {"machine h\nlogin me password my secret",
         "file:2: the netrc file has a word that is not machine, default, login, password, account or macdef; a value "
         "with blanks is put into double quotes"},
        {"machine h login me password", "file:1: the netrc file ends after 'password'"},
        {"machine h\n login \"secret", "file:2: the netrc file has a double quote that nothing closes"},
    };
    for (const auto& [text, refusal] : rows) {
        const vantik::Message message = testsupport::failureOf([&] { Netrc(text, "file"); });
        EXPECT_EQ(message.identifier(), "NETROVE:cli:Usage");
        EXPECT_EQ(message.Text, refusal);
    }
}

TEST(Netrc, SeesWhetherOthersMayReadTheFile) {
    const testsupport::TemporaryFolder folder;
    const std::string file = folder.file("netrc");
    EXPECT_FALSE(othersMayRead(file));
    testsupport::writeFile(file, "");
    using std::filesystem::perms;
    const std::pair<perms, bool> rows[] = {{perms::owner_read | perms::owner_write, false},
                                           {perms::owner_read | perms::group_read, true},
                                           {perms::owner_read | perms::others_read, true}};
    for (const auto& [permissions, readable] : rows) {
        std::filesystem::permissions(file, permissions);
        EXPECT_EQ(othersMayRead(file), readable);
    }
}

} // namespace
