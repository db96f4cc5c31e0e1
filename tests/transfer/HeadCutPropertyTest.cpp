// Heads made at random, sent by a real server in two pieces: wherever the cut lies, the same head arrives.
#include "tests/support/server/ScriptedServer.h"
#include "tests/transfer/ConnectionFixture.h"

#include <rapidcheck.h>

#include <sstream>

namespace {

using testsupport::Script;
using testsupport::ScriptedServer;
namespace step = testsupport::step;

using Lines = std::vector<std::string>;

struct Answer {
    std::vector<Lines> Interim; // field lines of the 100 heads in front
    int Status = 0;
    std::string Reason;
    Lines Fields;

    std::string statusLine() const { return "HTTP/1.1 " + std::to_string(Status) + ' ' + Reason; }
    Lines head() const {
        Lines lines{statusLine()};
        lines.insert(lines.end(), Fields.begin(), Fields.end());
        lines.emplace_back("Content-Length: 0");
        return lines;
    }
    std::string wire() const {
        std::string bytes;
        const auto add = [&](const Lines& lines) {
            for (const std::string& line : lines) {
                bytes += line + "\r\n";
            }
            bytes += "\r\n";
        };
        for (Lines lines : Interim) {
            lines.insert(lines.begin(), "HTTP/1.1 100 Continue");
            add(lines);
        }
        add(head());
        return bytes;
    }
};

void showValue(const Answer& answer, std::ostream& stream) {
    rc::show(answer.wire(), stream);
}

template <class Value>
rc::Gen<std::vector<Value>> fewOf(rc::Gen<Value> value) {
    return rc::gen::scale(0.05, rc::gen::container<std::vector<Value>>(rc::gen::scale(20.0, std::move(value))));
}

rc::Gen<std::string> printable() {
    return rc::gen::container<std::string>(
        rc::gen::weightedOneOf<char>({{9, rc::gen::inRange<char>(' ', '\x7f')}, {1, rc::gen::element('\t', '\xe4')}}));
}

// Names that libcurl gives no meaning to.
rc::Gen<std::string> fieldLine() {
    const auto name = rc::gen::container<std::string>(rc::gen::oneOf(
        rc::gen::inRange<char>('a', 'z'), rc::gen::inRange<char>('A', 'Z'), rc::gen::inRange<char>('0', '9')));
    return rc::gen::apply([](const std::string& end, const std::string& between,
                             const std::string& value) { return "X-" + end + between + value; },
                          name, rc::gen::element<std::string>(":", ": ", ":   "), printable());
}

rc::Gen<Answer> answers() {
    return rc::gen::build<Answer>(rc::gen::set(&Answer::Interim, fewOf<Lines>(fewOf<std::string>(fieldLine()))),
                                  rc::gen::set(&Answer::Status, rc::gen::inRange(200, 600)),
                                  rc::gen::set(&Answer::Reason, printable()),
                                  rc::gen::set(&Answer::Fields, fewOf<std::string>(fieldLine())));
}

class HeadCutPropertyTest : public ConnectionFixture {
protected:
    HeadCutPropertyTest() { connection.Settings.HTTPOptionsMode = true; }

    // The second piece leaves only when a perform has taken the first: it has arrived before a poll, and the pass
    // behind that poll reads it.
    void sendOnCut(ScriptedServer& server, std::size_t& passesBetween) {
        curl.OnInterruptPoll = [&, seen = false]() mutable {
            if (!connection.SentHead.Sent) {
                return;
            }
            if (!seen) {
                server.waitFor("first piece");
                seen = true;
            } else {
                ++passesBetween;
                server.raise("second piece");
            }
        };
    }
    void exchange(const std::string& url) {
        connection.closeConnection();
        connection.setURL({url.begin(), url.end()});
        connection.openConnection();
        std::ostringstream content;
        connection.copyContentToStream(content, true);
        RC_ASSERT(content.str().empty());
    }
    void expectArrived(const Answer& answer) const {
        RC_ASSERT(connection.ReceivedHead.ResponseCode == answer.Status);
        RC_ASSERT(connection.ReceivedHead.reasonPhrase() == answer.Reason);
        RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines == answer.head());
        RC_ASSERT(connection.ReceivedHead.HeadersComplete);
    }

    HTTPConnection connection;
};

TEST_F(HeadCutPropertyTest, HeadArrivesWholeWhereverItIsCut) {
    std::size_t passesBetween = 0;
    EXPECT_TRUE(rc::check("status, reason and lines do not depend on the cut", [&] {
        const Answer answer = *answers();
        const std::string bytes = answer.wire();
        // Behind the last byte there would be no second piece to wait for.
        const auto cut = *rc::gen::inRange<std::size_t>(0, bytes.size()).as("cut");
        ScriptedServer server(Script{step::expectHead(), step::send(bytes.substr(0, cut)), step::signal("first piece"),
                                     step::await("second piece"), step::send(bytes.substr(cut)), step::awaitPeerEnd()});
        sendOnCut(server, passesBetween);
        exchange(server.url());
        curl.OnInterruptPoll = nullptr;
        expectArrived(answer);
    }));
    EXPECT_GE(passesBetween, 100U) << "the pieces were not sent one by one";
}

TEST_F(HeadCutPropertyTest, HeadArrivesWholeInSingleBytes) {
    EXPECT_TRUE(rc::check("single bytes give the same head", [&] {
        const Answer answer = *answers();
        const ScriptedServer server(Script{step::expectHead(), step::send(answer.wire()), step::awaitPeerEnd()},
                                    testsupport::Pace::SingleBytes);
        exchange(server.url());
        expectArrived(answer);
    }));
}

} // namespace
