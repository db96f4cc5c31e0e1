// The trace of any text, and request heads cut anywhere between their lines.
#include "tests/support/host/PropertyTexts.h"
#include "tests/transfer/ConnectionFixture.h"

#include <rapidcheck/gtest.h>

#include <algorithm>

namespace {

// Search from the start; put seven or six characters in the place of a pair; go on nine characters behind its place.
std::string marked(std::string text) {
    std::size_t from = 0;
    while (from + 2 <= text.size()) {
        const std::size_t pair = text.find("\r\n", from);
        if (pair == std::string::npos) {
            break;
        }
        text.replace(pair, 2, pair + 2 < text.size() ? "<CRLF>\n" : "<CRLF>");
        from = pair + 9;
    }
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

class WireProperty : public ConnectionFixture {
protected:
    WireProperty() { connection.Limits.Deadline = SilenceLimits::kNoDeadline; }
    ~WireProperty() override { connection.Settings.Debug = 0; }

    void pass(curl_infotype type, std::string bytes) {
        debugCallback(nullptr, type, bytes.data(), bytes.size(), &connection);
    }
    // What stands in the trace behind the label, which has the given words in front of the time of day.
    std::string traced(curl_infotype type, const std::string& bytes, const std::string& words) {
        const StandardOutputCapture output;
        connection.Settings.Debug = 1;
        pass(type, bytes);
        connection.Settings.Debug = 0;
        connection.Transfer.EscapedFailure = nullptr; // of a head that is none
        connection.SentHead.InRequestHead = false;
        const std::string text = output.text();
        const std::size_t time = words.size();
        const bool labelled = text.compare(0, time, words) == 0 && text.compare(time + 7, 3, "): ") == 0;
        return labelled ? text.substr(time + 10) : "no label: " + text;
    }
    // As libcurl's remark, whose text is shown below 1000 characters; as content, which is only counted; as a head,
    // which is always shown.
    std::string wrongTrace(const std::string& bytes) {
        const std::string text = marked(bytes);
        const std::string count = std::to_string(text.size()) + " bytes\n";
        if (traced(CURLINFO_TEXT, bytes, "IN INFO (") != (text.size() < 1000 ? text + "\n" : count)) {
            return "remark";
        }
        if (traced(CURLINFO_DATA_IN, bytes, "IN DATA (") != count ||
            traced(CURLINFO_DATA_OUT, bytes, "OUT DATA (") != count) {
            return "content";
        }
        return traced(CURLINFO_HEADER_OUT, bytes, "OUT HDR (") == text + "\n" ? "nothing" : "head";
    }

    HTTPConnection connection;
};

// Each text of up to seven characters over those three.
TEST_F(WireProperty, LineEndsOfEveryShortTextAreMarkedByTheRule) {
    const std::string alphabet = "\r\na";
    std::vector<std::string> texts{""};
    for (std::size_t next = 0; next < texts.size(); ++next) {
        const std::string text = texts[next];
        EXPECT_EQ(wrongTrace(text), "nothing") << ::testing::PrintToString(text);
        for (const char last : text.size() < 7 ? alphabet : std::string()) {
            texts.push_back(text + last);
        }
    }
    EXPECT_EQ(texts.size(), 3280U); // 1 + 3 + 9 + ... + 2187
}

RC_GTEST_FIXTURE_PROP(WireProperty, LineEndsOfAnyTextAreMarkedByTheRule, ()) {
    const std::string text = *rc::gen::resize(400, propertytexts::textOf("\r\na"));
    RC_ASSERT(wrongTrace(text) == "nothing");
}

// Around the length from which a text is only counted, with the marks counted in.
RC_GTEST_FIXTURE_PROP(WireProperty, LongTextsAreCountedAfterMarking, ()) {
    const std::string head = *rc::gen::resize(60, propertytexts::textOf("\r\na"));
    const std::size_t filling = *rc::gen::inRange<std::size_t>(900, 1010);
    RC_ASSERT(wrongTrace(head + std::string(filling, 'a') + *propertytexts::textOf("\r\n")) == "nothing");
}

// A request's head in lines, each with its end.
struct Head {
    std::string Method;
    std::string Uri;
    std::string Version;
    std::vector<std::string> Fields;
};

rc::Gen<std::string> token() {
    return rc::gen::nonEmpty(propertytexts::textOf("GETPUTxyz-/%?=&:.1"));
}

rc::Gen<Head> head() {
    const auto value = propertytexts::textOf("ab :;=,\t\"");
    const auto plain = rc::gen::apply(
        [](const std::string& name, const std::string& text) { return name + ": v" + text + "v"; }, token(), value);
    const auto digest = rc::gen::apply(
        [](const std::string& name, const std::string& text) { return name + text + "\"MD5\"" + text + "v"; },
        rc::gen::element<std::string>("Authorization: ", "AUTHORIZATION:", "Cookie: "), value);
    return rc::gen::construct<Head>(
        token(), token(), rc::gen::element<std::string>("HTTP/1.1", "HTTP/1.0", "HTTP/2", "more words"),
        rc::gen::container<std::vector<std::string>>(rc::gen::weightedOneOf<std::string>({{4, plain}, {1, digest}})));
}

// What is kept of a field line: as it stands, apart from the first quoted token of an authorization field.
std::string kept(std::string line) {
    std::string name = line.substr(0, 14);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    const std::size_t token = line.find("\"MD5\"");
    if (name == "authorization:" && token != std::string::npos) {
        line.replace(token, 5, "MD5  ");
    }
    return line;
}

RC_GTEST_FIXTURE_PROP(WireProperty, HeadCutBetweenItsLinesIsTheSameHead, ()) {
    const auto heads = *rc::gen::resize(15, rc::gen::nonEmpty(rc::gen::container<std::vector<Head>>(head())));
    const StandardOutputCapture output;
    connection.Settings.Debug = *rc::gen::element(0, 0, 1);
    std::vector<std::string> lines;
    for (const Head& each : heads) {
        lines.push_back(each.Method + ' ' + each.Uri + ' ' + each.Version);
        lines.insert(lines.end(), each.Fields.begin(), each.Fields.end());
        lines.emplace_back();
    }
    const auto cuts = *rc::gen::container<std::vector<int>>(lines.size(), rc::gen::inRange(0, 2));
    std::string block;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        block += lines[i] + "\r\n";
        if (cuts[i] != 0) {
            pass(CURLINFO_HEADER_OUT, std::exchange(block, {}));
            RC_ASSERT(connection.SentHead.InRequestHead == !lines[i].empty());
        }
    }
    pass(CURLINFO_HEADER_OUT, block); // may be empty
    const Head& last = heads.back();
    std::vector<std::string> fields;
    std::transform(last.Fields.begin(), last.Fields.end(), std::back_inserter(fields), kept);
    RC_ASSERT(connection.Transfer.EscapedFailure == nullptr);
    RC_ASSERT(connection.SentHead.EffectiveMethod == last.Method);
    RC_ASSERT(connection.SentHead.RequestURI == last.Uri);
    RC_ASSERT(connection.SentHead.RequestHTTPVersion == last.Version);
    RC_ASSERT(connection.SentHead.RequestHeaderLines == fields);
    RC_ASSERT(connection.SentHead.Sent);
    RC_ASSERT(!connection.SentHead.InRequestHead);
}

} // namespace
