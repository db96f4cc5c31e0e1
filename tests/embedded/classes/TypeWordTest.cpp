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
        bool LiesInSlot = false;
        const char* ClassName = "";
    };
    for (const Row& row : {Row{"any", Kind::Any, Shape::Any},
                           {"unicodeString", Kind::UnicodeString, Shape::Any},
                           {"struct scalar", Kind::Struct, Shape::Scalar},
                           {"uint8", Kind::Plain, Shape::Any},
                           {"uint8 scalar", Kind::Plain, Shape::Scalar},
                           {"char scalar", Kind::Plain, Shape::Scalar},
                           {"logical vector", Kind::Plain, Shape::Vector},
                           {"logical scalar", Kind::Plain, Shape::Scalar, true},
                           {"int32 scalar", Kind::Plain, Shape::Scalar, true},
                           {"uint64 scalar", Kind::Plain, Shape::Scalar, true},
                           {"double scalar", Kind::Plain, Shape::Scalar, true},
                           {"double", Kind::Plain, Shape::Any},
                           {"scalar", Kind::Object, Shape::Scalar},
                           {"a.B scalar", Kind::Object, Shape::Scalar, false, "a.B"},
                           {"a.b.C vector", Kind::Object, Shape::Vector, false, "a.b.C"}}) {
        SCOPED_TRACE(row.Text);
        const auto word = TypeWord::parse(row.Text);
        ASSERT_TRUE(word);
        EXPECT_EQ(word->Text, row.Text);
        EXPECT_EQ(word->Content, row.Content);
        EXPECT_EQ(word->Form, row.Form);
        EXPECT_EQ(word->ClassName, row.ClassName);
        EXPECT_EQ(word->liesInSlot(), row.LiesInSlot);
    }
    for (const char* text : {"", " ", "vector ", " scalar", "any scalar ", "double  scalar", "double Scalar",
                             "a..b scalar", ".a", "a.", "a-b", "double scalar scalar"}) {
        EXPECT_FALSE(TypeWord::parse(text)) << '"' << text << '"';
    }
}
