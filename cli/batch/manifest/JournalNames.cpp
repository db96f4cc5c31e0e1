#include "cli/batch/manifest/JournalNames.h"

#include "cli/failures/CliFailure.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace netrove::cli {

bool isJournalName(std::string_view file, std::string_view base) {
    const auto isNumber = [](std::string_view text) {
        return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (!file.starts_with(base)) {
        return false;
    }
    const std::string_view rest = file.substr(base.size());
    const auto middle = rest.find("-of-");
    return rest.empty() || (rest.front() == '.' && middle != rest.npos && isNumber(rest.substr(1, middle - 1)) &&
                            isNumber(rest.substr(middle + 4)));
}

std::vector<std::string> siblingJournals(const std::string& base) {
    const std::filesystem::path path(base);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    const std::string name = path.filename().string();
    std::vector<std::string> found;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string file = entry->path().filename().string();
        if (isJournalName(file, name)) {
            found.push_back(path.has_parent_path() ? entry->path().string() : file);
        }
    }
    if (error && error.value() != EACCES && error.value() != ENOENT) {
        failSystem(failure::kFileNotRead, folder.string(), error.value());
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace netrove::cli
