// The command line, one word per line: it is accepted, or refused in one line of text, and secrets in it are wiped.
#include "cli/options/FieldText.h"
#include "cli/options/parser/OptionParser.h"
#include "fuzz/FuzzInput.h"
#include "vantik/Failure.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace netrove;
using namespace netrove::cli;

// The parser reads the files that these name, and a fuzzer must not read files.
bool namesFile(const std::string& word) {
    return word.starts_with('@') || (word.starts_with('-') && word.find('@') != word.npos);
}

void requireWiped(std::vector<std::string> words, const ParseResult& result) {
    std::vector<char*> pointers;
    pointers.reserve(words.size());
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    wipeSecrets(static_cast<int>(pointers.size()), pointers.data(), result.Secrets);
    for (const SecretValue& secret : result.Secrets) {
        const bool shown = secret.Kind == Secrecy::Whole && !secret.Text.empty() &&
                           secret.Text.find_first_not_of('x') != secret.Text.npos &&
                           std::any_of(words.begin() + 1, words.end(),
                                       [&](const std::string& word) { return word.ends_with(secret.Text); });
        require(!shown, "no word ends with a secret");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words{"netrove"};
    for (const std::string_view line : linesOf(textOf(data, size))) {
        words.emplace_back(line.substr(0, line.find('\0')));
    }
    if (std::any_of(words.begin(), words.end(), namesFile)) {
        return 0;
    }
    std::vector<const char*> arguments;
    arguments.reserve(words.size());
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    const int count = static_cast<int>(arguments.size());
    static_cast<void>(wantsJsonErrors(count, arguments.data()));
    try {
        const ParseResult result = parseCommandLine(count, arguments.data());
        require(!result.Settings.Url.empty() || result.Help || result.Settings.Command != Command::Get,
                "a get that is taken has a URL");
        requireWiped(words, result);
    } catch (const vantik::Failure& failure) {
        require(!failure.message().Text.empty() && !hasControls(failure.message().Text),
                "a refusal is one line of text");
    }
    return 0;
}
