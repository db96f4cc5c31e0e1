// Pages that quote programs and list the class: each says what the files and the class say.
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "vantik/Host.h"
#include "vantik/Http.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace testsupport;

std::string source(const std::string& path) {
    return readFile(std::string(NETROVE_SOURCES) + "/" + path);
}

struct Quote {
    std::string File;
    std::string Text;
};

// A quotation is a line "<!-- path -->", where the path names a C++ file, and the fenced block right after it.
std::vector<Quote> quotations(const std::string& page) {
    std::vector<Quote> found;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("<!-- ") || !line.ends_with(".cpp -->")) {
            continue;
        }
        Quote quote{line.substr(5, line.size() - 9), ""};
        std::getline(lines, line);
        if (line != "```cpp") {
            throw std::runtime_error("no block of C++ after the mark of " + quote.File);
        }
        while (std::getline(lines, line) && line != "```") {
            quote.Text += line + "\n";
        }
        found.push_back(std::move(quote));
    }
    return found;
}

std::vector<std::string> filesQuoted(const std::string& page) {
    std::vector<std::string> files;
    for (const Quote& quote : quotations(page)) {
        files.push_back(quote.File);
    }
    return files;
}

// Rows of the first table after a heading, cell by cell, without its head.
std::vector<std::vector<std::string>> tableAfter(const std::string& page, const std::string& heading) {
    const std::size_t place = page.find("\n" + heading + "\n");
    if (place == std::string::npos) {
        throw std::runtime_error("no heading " + heading);
    }
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(page.substr(place + heading.size() + 2));
    bool inTable = false;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("| ") && !line.starts_with("|-")) {
            if (inTable) {
                break;
            }
            continue;
        }
        inTable = true;
        std::vector<std::string> cells;
        for (std::size_t start = 1, end; (end = line.find('|', start)) != std::string::npos; start = end + 1) {
            const std::string cell = line.substr(start, end - start);
            cells.push_back(cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "");
        }
        rows.push_back(std::move(cells));
    }
    rows.erase(rows.begin(), rows.begin() + std::min<std::ptrdiff_t>(2, std::ssize(rows)));
    return rows;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text.empty() ? "none" : text;
}

// The columns of a table that the class decides, one line a row; a sentence has to be there.
std::vector<std::string> decidedColumns(const std::vector<std::vector<std::string>>& rows, std::size_t decided) {
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < decided && column < row.size(); ++column) {
            line += row[column] + " | ";
        }
        lines.push_back(line);
        EXPECT_EQ(row.size(), decided + 1) << line;
        EXPECT_TRUE(row.size() > decided && row[decided].ends_with('.')) << "no sentence: " << line;
    }
    return lines;
}

TEST(QuotedPages, QuoteTheirFilesInFull) {
    std::vector<std::filesystem::path> pages = {std::string(NETROVE_SOURCES) + "/README.md"};
    for (const auto& entry : std::filesystem::directory_iterator(std::string(NETROVE_SOURCES) + "/docs")) {
        pages.push_back(entry.path());
    }
    for (const std::filesystem::path& page : pages) {
        if (page.extension() != ".md") {
            continue;
        }
        for (const Quote& quote : quotations(readFile(page.string()))) {
            EXPECT_EQ(quote.Text, source(quote.File)) << page.filename() << " quotes " << quote.File;
        }
    }
}

TEST(QuotedPages, EveryExampleIsQuotedAndShort) {
    const std::vector<std::string> quoted = filesQuoted(source("docs/embedding.md"));
    std::vector<std::string> examples;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(NETROVE_SOURCES) + "/examples")) {
        if (entry.path().extension() == ".cpp") {
            examples.push_back("examples/" + entry.path().filename().string());
        }
    }
    EXPECT_THAT(quoted, testing::UnorderedElementsAreArray(examples));
    EXPECT_THAT(filesQuoted(source("README.md")), testing::ElementsAre("examples/get_to_memory.cpp"));
    for (const std::string& example : examples) {
        const std::string text = source(example);
        EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 60) << example;
    }
}

// Code that is in no file could say anything.
TEST(QuotedPages, HaveNoProgramThatIsNotQuoted) {
    for (const char* page : {"README.md", "docs/embedding.md"}) {
        const std::string text = source(page);
        std::size_t blocks = 0;
        for (std::size_t at = text.find("```cpp"); at != std::string::npos; at = text.find("```cpp", at + 1)) {
            ++blocks;
        }
        EXPECT_EQ(blocks, quotations(text).size()) << page;
    }
}

TEST(QuotedPages, QuotationsAreReadLineByLine) {
    const std::vector<Quote> found =
        quotations("text\n<!-- a.cpp -->\n```cpp\nint a;\n\n// b\n```\n<!-- a remark -->\n");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].File, "a.cpp");
    EXPECT_EQ(found[0].Text, "int a;\n\n// b\n");
    EXPECT_THROW(quotations("<!-- a.cpp -->\n\n```cpp\n```\n"), std::runtime_error);
}

class ClassTables : public HostFixture {
protected:
    const std::string Page = source("docs/embedding.md");
    vantik::ClassDescription Class = host().describe(vantik::kHttpConnectionClass);
};

TEST_F(ClassTables, EveryPropertyHasItsTypeAndASentence) {
    std::vector<std::string> expected;
    for (const vantik::PropertyDescription& property : Class.Properties) {
        expected.push_back("`" + property.Name + "` | " + property.Type + (property.Settable ? "" : ", read only") +
                           " | ");
    }
    EXPECT_EQ(expected.size(), 24u);
    EXPECT_THAT(decidedColumns(tableAfter(Page, "### Properties"), 2), testing::ElementsAreArray(expected));
}

TEST_F(ClassTables, EveryMethodHasItsSignatureAndASentence) {
    std::vector<std::string> expected;
    for (const vantik::MethodDescription& method : Class.Methods) {
        if (&method == &Class.Methods.front()) {
            continue; // the constructor
        }
        const std::vector<std::string> inputs(method.Inputs.begin() + 1, method.Inputs.end());
        expected.push_back("`" + method.Name + "` | " + joined(inputs) + " | " + joined(method.Outputs) + " | ");
    }
    EXPECT_EQ(expected.size(), 17u);
    EXPECT_THAT(decidedColumns(tableAfter(Page, "### Methods"), 3), testing::ElementsAreArray(expected));
}

// Every "VANTIK:catalogue:Key" in a text.
std::vector<std::string> identifiersIn(const std::string& text) {
    constexpr const char* kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
    std::vector<std::string> found;
    for (std::size_t at = text.find("VANTIK:"); at != std::string::npos; at = text.find("VANTIK:", at + 1)) {
        const std::size_t colon = text.find_first_not_of(kLetters, at + 7);
        if (colon == std::string::npos || text[colon] != ':') {
            continue; // a catalogue alone
        }
        found.push_back(text.substr(at, text.find_first_not_of(kLetters, colon + 1) - at));
    }
    return found;
}

TEST(QuotedPages, IdentifiersThatTheySpeakOfHaveAMessage) {
    EXPECT_THAT(identifiersIn("`VANTIK:a:B`, VANTIK:a, \"VANTIK:c_d:E\"."),
                testing::ElementsAre("VANTIK:a:B", "VANTIK:c_d:E"));
    const std::string catalogue = source("embedded/messages/en.txt");
    std::vector<std::string> files = {"docs/embedding.md"};
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(NETROVE_SOURCES) + "/embedded/include/vantik")) {
        files.push_back("embedded/include/vantik/" + entry.path().filename().string());
    }
    for (const std::string& file : files) {
        for (const std::string& name : identifiersIn(source(file))) {
            EXPECT_NE(catalogue.find("\n" + name + " "), std::string::npos) << file << ": " << name;
        }
    }
    EXPECT_GT(identifiersIn(source(files.front())).size(), 5u);
}

} // namespace
