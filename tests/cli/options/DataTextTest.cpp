#include "cli/options/DataText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace netrove::cli;

TEST(DataText, EncodesInFiveForms) {
    const auto read = [](const std::string& atFile) { return "<" + atFile + ">"; };
    const std::pair<std::string, std::string> rows[] = {
        {"a b&c~*\xC3\xA9", "a+b%26c~%2A%C3%A9"},
        {"=a=b", "a%3Db"},
        {"n=a b=c@d", "n=a+b%3Dc%40d"},
        {"@file", "%3C%40file%3E"},
        {"n@fi@le", "n=%3C%40fi%40le%3E"},
        {"n=", "n="},
        {"", ""},
    };
    for (const auto& [text, encoded] : rows) {
        EXPECT_EQ(encodedData(text, read), encoded) << text;
    }
}

TEST(DataText, PutsDataIntoTheQuery) {
    struct {
        std::string Url;
        std::string Query;
        std::string Result;
    } const rows[] = {
        {"http://h/", "a=1", "http://h/?a=1"},         {"http://h", "a=1", "http://h?a=1"},
        {"http://h/?x", "a=1", "http://h/?x&a=1"},     {"http://h/?", "a=1", "http://h/?a=1"},
        {"http://h/?x&", "a=1", "http://h/?x&a=1"},    {"http://h/#f?", "a=1", "http://h/?a=1#f?"},
        {"http://h/?x#f", "a=1", "http://h/?x&a=1#f"}, {"http://h/#f", "", "http://h/#f"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(withQuery(row.Url, row.Query), row.Result);
    }
}

} // namespace
