#include "cli/options/FormText.h"

#include "tests/support/host/HostFixture.h"

#include <gmock/gmock.h>

#include <ostream>
#include <string>

namespace netrove::cli {

void PrintTo(const FormField& field, std::ostream* out) {
    *out << field.Name << '|' << int(field.ContentKind) << '|' << field.Value << '|' << field.Type << '|'
         << field.FileName;
}

} // namespace netrove::cli

namespace {

using namespace netrove::cli;
using Fields = std::vector<FormField>;
using Kind = FormField::Kind;

TEST(FormText, TakesTextsAndFiles) {
    const std::pair<std::string, Fields> rows[] = {
        {"a=1", {{"a", Kind::Text, "1", "", ""}}},
        {"a=", {{"a", Kind::Text, "", "", ""}}},
        {"a=b=c,d", {{"a", Kind::Text, "b=c,d", "", ""}}},
        {"a= x y ;type=text/html", {{"a", Kind::Text, "x y", "text/html", ""}}},
        {R"(a="x;\"y\\z\w ";filename=f)", {{"a", Kind::Text, R"(x;"y\z\w )", "", "f"}}},
        {R"(a="open;type=a/b)", {{"a", Kind::Text, R"("open)", "a/b", ""}}},
        {"a=<f;type=text/csv", {{"a", Kind::TextOfFile, "f", "text/csv", ""}}},
        {"a=@-", {{"a", Kind::Upload, "-", "", ""}}},
        {"a=@f;filename=\"g;h\";type=text/html; charset=utf-8 ; q=1",
         {{"a", Kind::Upload, "f", "text/html;charset=utf-8;q=1", "g;h"}}},
        {"a=@f;TYPE=a/b;filename=g", {{"a", Kind::Upload, "f", "a/b", "g"}}},
        {R"(a=@f, "g,h";type=a/b,i)",
         {{"a", Kind::Upload, "f", "", ""}, {"a", Kind::Upload, "g,h", "a/b", ""}, {"a", Kind::Upload, "i", "", ""}}},
    };
    for (const auto& [text, fields] : rows) {
        EXPECT_EQ(parseFormField(text), fields) << text;
    }
    EXPECT_EQ(literalFormField("a=@b;type=c"), (FormField{"a", Kind::Text, "@b;type=c", "", ""}));
}

TEST(FormText, RefusesWhatWouldBeCut) {
    for (const char* text : {"secret", "=secret", "a=x;y", "a=x;headers=secret", "a=@", "a=<", "a=@f,", "a=x;type=html",
                             "a=\"x\"y", "a=@f;filename=g;charset=secret"}) {
        const vantik::Message message = testsupport::failureOf([&] { parseFormField(text); });
        EXPECT_EQ(message.identifier(), "NETROVE:cli:Usage") << text;
        EXPECT_THAT(message.Text, testing::Not(testing::HasSubstr("secret")));
    }
    EXPECT_EQ(testsupport::failureOf([] { literalFormField("secret"); }).Text,
              "a part for --form-string is written NAME=VALUE");
}

} // namespace
