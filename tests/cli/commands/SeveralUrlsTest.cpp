// Several URLs in one call, one after the other or at the same time.
#include "tests/cli/ProgramFixture.h"

#include <csignal>

namespace {

using namespace clitest;

using SeveralUrls = ProgramFixture;

// These answers, in order, over one connection.
Script answeringAll(const Words& answers) {
    Script script;
    for (const std::string& answer : answers) {
        script.push_back(step::expectHead());
        script.push_back(step::send(answer));
    }
    script.push_back(step::awaitPeerEnd());
    return script;
}

const std::string kMissing = response("sorry", {}, "404 Not Found");

TEST_F(SeveralUrls, TheirContentComesInTheirOrder) {
    const Exchanged got = runAgainst(answeringAll({response("1"), response("2"), response("3")}),
                                     {"get", "--url", "URL/a", "URL/b", "URL/c"});
    EXPECT_THAT(got, ended(0, "123", ""));
    EXPECT_EQ(got.Connections, 1u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(got.requestLine(i), std::string("GET /") + "abc"[i] + " HTTP/1.1");
    }
}

TEST_F(SeveralUrls, FilesGoWithUrlsInOrder) {
    const Exchanged got = runAgainst(answeringAll({response("1"), response("2"), response("3")}),
                                     {"get", "-o", "x", "-O", "URL/a", "URL/b/name", "URL/c"}, here());
    EXPECT_THAT(got, ended(0, "3", ""));
    EXPECT_EQ(names(), (Words{"name", "x"}));
    EXPECT_EQ(readFile(file("x")) + readFile(file("name")), "12");

    EXPECT_EQ(runAgainst(answeringAll({response("4"), response("5")}),
                         {"get", "--remote-name-all", "-o", "x", "URL/a", "URL/name"}, here())
                  .Status,
              0);
    EXPECT_EQ(readFile(file("x")) + readFile(file("name")), "45");
}

TEST_F(SeveralUrls, AreSavedIntoAFolder) {
    EXPECT_EQ(runAgainst(answeringAll({response("1"), response("2")}), {"save", "URL/a", "URL/b"}, here()).Status, 0);
    std::filesystem::create_directory(file("to"));
    EXPECT_EQ(
        runAgainst(answeringAll({response("3"), response("4")}), {"save", "-O", "URL/a", "URL/b", "to"}, here()).Status,
        0);
    EXPECT_EQ(names(), (Words{"a", "b", "to"}));
    EXPECT_EQ(namesIn(file("to")), (Words{"a", "b"}));
}

TEST_F(SeveralUrls, WhatCannotWorkIsRefusedBeforeAnythingIsSent) {
    const std::pair<Words, std::string> rows[] = {
        {{"save", "URL/x/f", "URL/y/f"}, "URL/x/f and URL/y/f would both be written to f; nothing was sent"},
        {{"get", "-o", "f", "-o", "./f", "URL/x", "URL/y"},
         "URL/x and URL/y would both be written to ./f; nothing was sent"},
        {{"save", "URL/a", "URL/b", "file"}, "several URLs are saved into a folder, and 'file' is not one"},
        {{"save", "--digest", "sha256:" + std::string(64, 'a'), "URL/a", "URL/b"},
         "--digest is that of one file; give one URL, or a sha256 in each line of a batch"},
        {{"get", "-C", "3", "-O", "-O", "URL/a", "URL/b"},
         "--continue-at with an offset is for one file; give one URL, or -C - for all of them"},
        {{"save", "URL/a", "one", "two"}, "unexpected argument 'two' for save"},
        {{"get", "URL/a", "file"}, "unexpected argument 'file' for get"},
        {{"send", "URL/a", "http://h/"}, "unexpected argument 'http://h/' for send"},
        {{"get", "-o", "a", "-O", "URL/x"}, "--output and --remote-name are given 2 times, and there is 1 URL"},
        {{"get", "-Z", "--debug", "1", "URL/a", "URL/b"},
         "--debug shows one transfer at a time; leave out --parallel, or use --verbose, which marks its lines"},
        {{"get", "-w", "%{http_cod}", "URL"}, "--write-out knows no '%{http_cod}'; did you mean %{http_code}?"},
    };
    for (const auto& [words, complaint] : rows) {
        const ScriptedServer server(answering(response("x")));
        Exchanged refused{run(withUrl(words, server), here()), server.url()};
        EXPECT_EQ(refused.Status, 2);
        EXPECT_EQ(refused.complaint(), "netrove: NETROVE:cli:Usage: " + complaint + "\n");
        EXPECT_EQ(server.connectionCount(), 0u);
        EXPECT_EQ(names(), Words{});
    }
}

TEST_F(SeveralUrls, EachFailureIsToldWithItsUrlAndTheOthersGoOn) {
    const Exchanged one = runAgainst(answeringAll({kMissing, response("fine")}), {"get", "URL/a", "URL/b"});
    EXPECT_THAT(one, ended(22, "fine"));
    EXPECT_EQ(one.complaint(), "netrove: NETROVE:cli:StatusError: the server answered 404 Not Found for URL/a\n");

    const Words limited = {"get", "--max-filesize", "10", "URL/a", "URL/b"};
    const Exchanged both = runAgainst(answeringAll({kMissing, response(std::string(11, 'x'))}), limited);
    EXPECT_THAT(both, ended(1, ""));
    EXPECT_THAT(both.complaint(), HasSubstr("ContentLimit: URL/b: the content is larger than 10 bytes"));

    const Exchanged early =
        runAgainst(answeringAll({kMissing, response("fine")}), {"get", "--fail-early", "URL/a", "URL/b"});
    EXPECT_THAT(early, ended(22, ""));
    EXPECT_EQ(early.Seen.Heads.size(), 1u);
}

TEST_F(SeveralUrls, ALoginInAUrlIsForThatUrl) {
    const ScriptedServer server(answeringAll({response("1"), response("2")}));
    const std::string withLogin = "http://me:secret@" + server.authority() + "/a";
    EXPECT_THAT(run({"get", withLogin, server.url("/b")}), ended(0, "12", ""));
    const Record seen = server.waitUntilDone();
    for (const std::string& head : seen.Heads) {
        if (startLine(head) == "GET /b HTTP/1.1") {
            EXPECT_EQ(fieldValue(head, "Authorization"), std::nullopt);
        }
    }
}

// The head

TEST_F(SeveralUrls, TheHeadAloneIsShownWhateverItSays) {
    const std::string head = "HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\n\r\n";
    const Exchanged got = runAgainst(answering(head), {"get", "-I", "URL"});
    EXPECT_THAT(got, ended(22, head));
    EXPECT_EQ(got.requestLine(), "HEAD / HTTP/1.1");
    EXPECT_EQ(runAgainst(answering(head), {"send", "--head", "URL"}).Status, 0);
}

TEST_F(SeveralUrls, HeadsGoIntoAFileToo) {
    writeFile(file("heads"), "old");
    const Exchanged got = runAgainst(answeringAll({kMissing, response("2", {"X-A: 1"})}),
                                     {"get", "-D", "heads", "URL/a", "URL/b"}, here());
    EXPECT_THAT(got, ended(22, "2"));
    EXPECT_EQ(readFile(file("heads")), "HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\n\r\n"
                                       "HTTP/1.1 200 OK\r\nX-A: 1\r\nContent-Length: 1\r\n\r\n");
}

// At the same time

Script waiting(const std::string& name, const std::string& answer) {
    return {step::expectHead(), step::signal(name), step::await("all are there"), step::send(answer),
            step::awaitPeerEnd()};
}

TEST_F(SeveralUrls, RunAtTheSameTime) {
    ScriptedServer server({waiting("1", response("1")), waiting("2", response("1")), waiting("3", response("1"))});
    Program program({"save", "-Z", server.url("/a"), server.url("/b"), server.url("/c")}, here());
    for (const char* name : {"1", "2", "3"}) {
        server.waitFor(name);
    }
    server.raise("all are there");
    EXPECT_THAT(program.wait(), ended(0, "", ""));
    EXPECT_EQ(names(), (Words{"a", "b", "c"}));
    EXPECT_EQ(readFile(file("a")) + readFile(file("b")) + readFile(file("c")), "111");
}

TEST_F(SeveralUrls, AtTheSameTimeLinesOfTheTraceSayWhose) {
    ScriptedServer server({waiting("1", response("x")), waiting("2", response("x"))});
    Program program({"get", "-Z", "-v", server.url("/a"), server.url("/b")});
    server.waitFor("1");
    server.waitFor("2");
    server.raise("all are there");
    const Outcome ran = program.wait();
    EXPECT_THAT(ran, ended(0, "xx",
                           AllOf(HasSubstr("[1] * " + server.url("/a") + "\n"), HasSubstr("[1] > GET /a HTTP/1.1\n"),
                                 HasSubstr("[2] * " + server.url("/b") + "\n"), HasSubstr("[2] > GET /b HTTP/1.1\n"),
                                 HasSubstr("[2] < HTTP/1.1 200 OK\n"), Not(HasSubstr("\n* ")))));
}

TEST_F(SeveralUrls, ContentOfTransfersAtTheSameTimeDoesNotRunIntoOneAnother) {
    const std::string left(200'000, 'a');
    const std::string right(200'000, 'b');
    ScriptedServer server({waiting("1", response(left)), waiting("2", response(right))});
    Program program({"get", "--parallel", server.url("/a"), server.url("/b")});
    server.waitFor("1");
    server.waitFor("2");
    server.raise("all are there");
    EXPECT_THAT(program.wait(), ended(0, testing::AnyOf(left + right, right + left), ""));
}

TEST_F(SeveralUrls, NoMoreRunAtATimeThanAllowed) {
    for (const Words& limit : {Words{"--parallel-max", "1"}, {"--parallel-max-host", "1"}}) {
        const ScriptedServer server({answeringAll({response("1"), response("2")}), answering(response("2"))});
        EXPECT_EQ(
            run(Words{"save", "--force", "-Z"} + limit + Words{server.url("/a"), server.url("/b")}, here()).Status, 0);
        EXPECT_EQ(readFile(file("a")), "1") << "both came to the server at once";
        EXPECT_EQ(readFile(file("b")), "2");
    }
}

TEST_F(SeveralUrls, AtTheSameTimeTheFirstFailureEndsTheOthersWhereAsked) {
    const ScriptedServer server({Script{step::expectHead(), step::send(kMissing), step::awaitPeerEnd()},
                                 Script{step::expectHead(), step::awaitPeerEnd()}});
    const Outcome ran = run({"save", "-Z", "--fail-early", server.url("/a"), server.url("/b")}, here());
    EXPECT_EQ(ran.Status, 22);
    EXPECT_EQ(std::count(ran.Err.begin(), ran.Err.end(), '\n'), 1) << ran.Err;
    EXPECT_EQ(names(), Words{});
}

TEST_F(SeveralUrls, ASignalEndsAllThatRun) {
    const Script silent = {step::expectHead(), step::signal("asked"), step::awaitPeerEnd()};
    const ScriptedServer server(std::vector<Script>{silent, silent});
    Program program({"get", "-Z", server.url("/a"), server.url("/b")});
    server.waitFor("asked");
    program.signal(SIGINT);
    EXPECT_THAT(program.wait(), ended(130, "", "netrove: NETROVE:cli:Interrupted: interrupted\n"));
}

} // namespace
