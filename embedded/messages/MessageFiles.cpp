#include "embedded/messages/MessageFiles.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace vantik::detail {

namespace {

constexpr std::uintmax_t kLargestFile = 4U << 20U; // a catalogue has a few kilobytes
constexpr std::size_t kMostTables = 64;            // programs choose locale names freely

std::vector<std::filesystem::path> messageFolders() {
    std::vector<std::filesystem::path> folders;
    if (const char* path = std::getenv("VANTIK_MESSAGES_PATH")) {
        const std::string list(path);
        for (std::size_t start = 0; start <= list.size();) {
            const std::size_t end = std::min(list.find(':', start), list.size());
            if (end > start) {
                folders.emplace_back(list.substr(start, end - start));
            }
            start = end + 1;
        }
    }
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&messageFolders), &library) != 0 && library.dli_fname != nullptr) {
        folders.push_back(std::filesystem::path(library.dli_fname).parent_path() / VANTIK_MESSAGES_FOLDER);
    }
    return folders;
}

// The table in a file; null where there is no such file or it cannot be read.
std::shared_ptr<const MessageTable> readTable(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return nullptr;
    }
    if (const std::uintmax_t size = std::filesystem::file_size(file, error); error || size > kLargestFile) {
        std::fprintf(stderr, "warning: %s: too large for a message catalogue\n", file.c_str());
        return nullptr;
    }
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        std::fprintf(stderr, "warning: %s: cannot be read\n", file.c_str());
        return nullptr;
    }
    auto table = std::make_shared<const MessageTable>(MessageTable::parse(text, file.string()));
    for (const std::string& problem : table->problems()) {
        std::fprintf(stderr, "warning: %s\n", problem.c_str());
    }
    return table;
}

// The table in a file, read once per process. What is not there is remembered too: messages are wanted often.
std::shared_ptr<const MessageTable> cachedTable(const std::filesystem::path& file) {
    using Cache = std::map<std::string, std::shared_ptr<const MessageTable>>;
    static std::mutex& guard = *new std::mutex;
    static Cache& tables = *new Cache; // never destroyed, like the English table
    const std::lock_guard lock(guard);
    const auto known = tables.find(file.string());
    if (known != tables.end()) {
        return known->second;
    }
    if (tables.size() >= kMostTables) {
        tables.clear();
    }
    return tables.emplace(file.string(), readTable(file)).first->second;
}

} // namespace

std::vector<std::string> localeChain(const std::string& localeName) {
    std::string name = localeName.substr(0, localeName.find_first_of(".@"));
    std::ranges::replace(name, '-', '_');
    const auto isNameCharacter = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    };
    // The name becomes part of a file's name, and it may come from the environment.
    if (name.empty() || name.size() > 32 || !std::ranges::all_of(name, isNameCharacter)) {
        return {};
    }
    std::vector<std::string> chain;
    for (std::size_t end = name.size(); end != std::string::npos && end > 0; end = name.rfind('_', end - 1)) {
        chain.push_back(name.substr(0, end));
    }
    return chain;
}

std::vector<std::shared_ptr<const MessageTable>> messageTables(const std::string& localeName) {
    std::vector<std::string> names = localeChain(localeName);
    if (std::ranges::find(names, "en") == names.end()) {
        names.emplace_back("en"); // a file may replace texts of the English table as well
    }
    const std::vector<std::filesystem::path> folders = messageFolders();
    std::vector<std::shared_ptr<const MessageTable>> tables;
    for (const std::string& name : names) {
        for (const std::filesystem::path& folder : folders) {
            if (auto table = cachedTable(folder / (name + ".txt"))) {
                tables.push_back(std::move(table));
            }
        }
    }
    tables.emplace_back(std::shared_ptr<const void>(), &MessageTable::english());
    return tables;
}

std::u16string messageText(const resource_core::BaseMsgID& id, const std::string& localeName) {
    const std::string fullName = id.fullName();
    try {
        for (const auto& table : messageTables(localeName)) {
            const std::u16string* pattern = table->find(fullName);
            if (pattern == nullptr) {
                continue;
            }
            std::u16string text = fillPattern(*pattern, id.arguments());
            if (text.find_first_not_of(u" \t\r\n") != std::u16string::npos) {
                return text;
            }
        }
    } catch (const std::runtime_error&) {
        // Patterns need ICU. Where it cannot be loaded, a failure must not take the place of the one to be shown.
    }
    return textWithoutPattern(id);
}

} // namespace vantik::detail
