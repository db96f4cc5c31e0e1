// What the journals of a manifest are called: one for a run of the whole of it, one for each shard beside that.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// The journals that other shards of the same manifest, whatever their number, have written beside `base`. Raises
// FileNotRead; a folder that may not be listed has none.
std::vector<std::string> siblingJournals(const std::string& base);
// True for `base` and for what a shard's journal beside it is called.
bool isJournalName(std::string_view file, std::string_view base);

} // namespace netrove::cli
