// The names of a manifest's journals: one for a run of the whole manifest, and one beside it for each shard.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// The journals that shards of the same manifest, whatever their number, have written beside `base`. Raises FileNotRead;
// a folder that may not be listed has none.
std::vector<std::string> siblingJournals(const std::string& base);
// True for `base` and for the name of a shard's journal beside it.
bool isJournalName(std::string_view file, std::string_view base);

} // namespace netrove::cli
