#include "embedded/classes/TypeWord.h"

#include <gtest/gtest.h>

using vantik::detail::TypeWord;
using Kind = TypeWord::Kind;
using Shape = TypeWord::Shape;

TEST(TypeWords, SayClassAndShape) {
    struct Row {
        const char* Text;
        Kind Content;
        Shape Form;
        const char* ClassName;
        bool LiesInSlot;
    };
    for (const Row& row : {Row{"any", Kind::Any, Shape::Any, "", false},
                           {"unicodeString", Kind::UnicodeString, Shape::Any, "", false},
                           {"struct scalar", Kind::Struct, Shape::Scalar, "", false},
                           {"uint8", Kind::Plain, Shape::Any, "", false},
                           {"uint8 scalar", Kind::Plain, Shape::Scalar, "", false},
                           {"char scalar", Kind::Plain, Shape::Scalar, "", false},
                           {"logical vector", Kind::Plain, Shape::Vector, "", false},
                           {"logical scalar", Kind::Plain, Shape::Scalar, "", true},
                           {"int32 scalar", Kind::Plain, Shape::Scalar, "", true},
                           {"uint64 scalar", Kind::Plain, Shape::Scalar, "", true},
                           {"double scalar", Kind::Plain, Shape::Scalar, "", true},
                           {"double", Kind::Plain, Shape::Any, "", false},
                           {"scalar", Kind::Object, Shape::Scalar, "", false},
                           {"a.B scalar", Kind::Object, Shape::Scalar, "a.B", false},
                           {"a.b.C vector", Kind::Object, Shape::Vector, "a.b.C", false}}) {
        const auto word = TypeWord::parse(row.Text);
        ASSERT_TRUE(word) << row.Text;
        EXPECT_EQ(word->Text, row.Text);
        EXPECT_EQ(word->Content, row.Content) << row.Text;
        EXPECT_EQ(word->Form, row.Form) << row.Text;
        EXPECT_EQ(word->ClassName, row.ClassName) << row.Text;
        EXPECT_EQ(word->liesInSlot(), row.LiesInSlot) << row.Text;
    }
}

TEST(TypeWords, OtherTextsAreRefused) {
    for (const char* text : {"", " ", "vector ", " scalar", "any scalar ", "double  scalar", "double Scalar",
                             "a..b scalar", ".a", "a.", "a-b", "double scalar scalar"}) {
        EXPECT_FALSE(TypeWord::parse(text)) << '"' << text << '"';
    }
}
