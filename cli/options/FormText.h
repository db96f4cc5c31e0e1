// Parts of a multipart form, as people type them.
#pragma once

#include <string>
#include <vector>

namespace netrove::cli {

// One part, before any file is opened.
struct FormField {
    enum class Kind { Text, TextOfFile, Upload };
    std::string Name;
    Kind ContentKind = Kind::Text;
    std::string Value;    // the text, or the name of the file; "-": standard input
    std::string Type;     // empty: by the kind, and by the file's name
    std::string FileName; // as it is told to the server; empty: that of an uploaded file
    bool operator==(const FormField&) const = default;
};

// "NAME=TEXT", "NAME=<FILE" (a text from a file), "NAME=@FILE[,FILE]" (files), each with ";type=T" and ";filename=N"
// after it. A value in
// double quotes, with '\' before '"' and '\', may hold what would end it. Raises a usage failure.
std::vector<FormField> parseFormField(const std::string& text);

// "NAME=TEXT", whatever the text begins with or holds. Raises a usage failure.
FormField literalFormField(const std::string& text);

} // namespace netrove::cli
