// Which part of a manifest a run does: the first line is the value of --shard, the others are environment variables.
// What is accepted is a part that exists.
#include "cli/batch/manifest/BatchShard.h"
#include "cli/options/FieldText.h"
#include "fuzz/FuzzInput.h"
#include "vantik/Failure.h"

#include <map>
#include <string>

using namespace netrove;
using namespace netrove::cli;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string option;
    std::map<std::string, std::string, std::less<>> variables;
    const auto lines = linesOf(textOf(data, size));
    for (const std::string_view line : lines) {
        const std::size_t mark = line.find('=');
        if (mark != line.npos) {
            variables.emplace(line.substr(0, mark), line.substr(mark + 1));
        } else if (&line == &lines.front()) {
            option = line;
        }
    }
    try {
        const BatchShard shard = chooseShard(option, [&](const char* name) -> const char* {
            const auto found = variables.find(std::string_view(name));
            return found == variables.end() ? nullptr : found->second.c_str();
        });
        require(shard.Index >= 1 && shard.Index <= shard.Count && shard.Count <= 1'000'000,
                "a part is one that exists");
        require(shard.has(shard.Index - 1) && !(shard.Count > 1 && shard.has(shard.Index)), "a part has its own lines");
        require(shard.whole() == shard.fileSuffix().empty(), "files of parts have names of their own");
    } catch (const vantik::Failure& failure) {
        require(!hasControls(failure.message().Text), "a refusal is one line of text");
    }
    return 0;
}
