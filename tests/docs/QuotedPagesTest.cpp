// Pages that quote programs and list the class: each says what the files and the class say.
#include "tests/docs/Page.h"
#include "tests/support/host/HostFixture.h"
#include "vantik/Http.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace {

using namespace docstest;
using Texts = std::vector<std::string>;

// A block right after a line "<!-- path -->", where the path names a C++ file, quotes that file; "<!-- path: name -->"
// a part of it.
std::string quotedFile(const Block& block) {
    const Texts files = matches(block.Before, R"(^<!-- (\S+\.cpp(: \w+)?) -->$)");
    return files.empty() ? "" : files.front();
}

Texts filesQuoted(const std::string& page) {
    Texts files;
    for (const Block& block : blocksOf(source(page))) {
        if (block.Language == "cpp") {
            EXPECT_NE(quotedFile(block), "") << page << " has code that is in no file, which could say anything";
            files.push_back(quotedFile(block));
        }
    }
    return files;
}

TEST(QuotedPages, QuoteTheirFilesInFull) {
    for (const std::string& page : allPages()) {
        for (const Block& block : blocksOf(source(page))) {
            if (const std::string file = quotedFile(block); !file.empty()) {
                EXPECT_EQ(block.Text, quotable(file)) << page << " quotes " << file;
            }
        }
    }
}

TEST(QuotedPages, EveryExampleIsQuotedAndShort) {
    const Texts examples = sourcesIn("examples/embedding", ".cpp");
    EXPECT_THAT(filesQuoted("docs/embedding.md"), testing::UnorderedElementsAreArray(examples));
    EXPECT_THAT(filesQuoted("README.md"), testing::ElementsAre("examples/client/first.cpp: first"));
    for (const std::string& example : examples) {
        const std::string text = source(example);
        EXPECT_LT(std::ranges::count(text, '\n'), 60) << example;
    }
}

TEST(QuotedPages, EveryPartOfAnExampleIsQuotedOnce) {
    Texts parts;
    for (const std::string& example : sourcesIn("examples/client", ".cpp")) {
        for (const std::string& part : matches(source(example), R"(// \[(\w+)\]\n)")) {
            parts.push_back(example + ": " + part);
        }
    }
    Texts quoted;
    for (const char* page : {"README.md", "docs/get-started.md", "docs/cookbook.md"}) {
        std::ranges::copy(filesQuoted(page), std::back_inserter(quoted));
    }
    EXPECT_THAT(quoted, testing::UnorderedElementsAreArray(parts));
}

class ClassTables : public testsupport::HostFixture {
protected:
    const std::string Page = source("docs/embedding.md");
    vantik::ClassDescription Class = host().describe(vantik::kHttpConnectionClass);
};

// Each row of the table begins with what the class decides, in its order, and goes on with a sentence.
void expectRows(const std::string& table, const Texts& beginnings) {
    const Texts rows = matches(table, R"(\n(\| `.*))");
    ASSERT_EQ(rows.size(), beginnings.size());
    for (std::size_t index = 0; index < rows.size(); ++index) {
        EXPECT_THAT(rows[index], testing::StartsWith(beginnings[index]));
        const std::string rest = rows[index].substr(std::min(beginnings[index].size(), rows[index].size()));
        EXPECT_TRUE(rest.ends_with(". |") && std::ranges::count(rest, '|') == 1) << "no sentence: " << rows[index];
    }
}

TEST_F(ClassTables, EveryPropertyHasItsTypeAndASentence) {
    Texts beginnings;
    for (const vantik::PropertyDescription& property : Class.Properties) {
        beginnings.push_back("| `" + property.Name + "` | " + property.Type +
                             (property.Settable ? " | " : ", read only | "));
    }
    EXPECT_EQ(beginnings.size(), 24u);
    expectRows(section(Page, "### Properties"), beginnings);
}

std::string joined(const Texts& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text.empty() ? "none" : text;
}

TEST_F(ClassTables, EveryMethodHasItsSignatureAndASentence) {
    Texts beginnings;
    for (const vantik::MethodDescription& method : std::span(Class.Methods).subspan(1)) { // after the constructor
        beginnings.push_back("| `" + method.Name + "` | " + joined({method.Inputs.begin() + 1, method.Inputs.end()}) +
                             " | " + joined(method.Outputs) + " | ");
    }
    EXPECT_EQ(beginnings.size(), 17u);
    expectRows(section(Page, "### Methods"), beginnings);
}

TEST(QuotedPages, IdentifiersThatTheySpeakOfHaveAMessage) {
    const std::string catalogue = source("embedded/messages/en.txt");
    Texts files = sourcesIn("embedded/include/vantik", ".h");
    files.push_back("docs/embedding.md");
    Texts found;
    for (const std::string& file : files) {
        found = matches(source(file), R"((VANTIK:\w+:\w+))");
        for (const std::string& name : found) {
            EXPECT_THAT(catalogue, testing::HasSubstr("\n" + name + " ")) << file;
        }
    }
    EXPECT_GT(found.size(), 5u) << "in the last one";
}

} // namespace
