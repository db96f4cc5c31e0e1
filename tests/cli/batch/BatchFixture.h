// What the tests of whole batch runs share.
#pragma once

#include "tests/cli/ProgramFixture.h"
#include "tests/cli/batch/BatchServer.h"

#include <nlohmann/json.hpp>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace batchtest {

using namespace clitest;
using Json = nlohmann::json;

class BatchFixture : public ProgramFixture {
protected:
    BatchServer Server;

    Outcome batch(const Words& arguments, const std::map<std::string, std::string>& environment = {}) const {
        return run(Words{"batch"} + arguments, {.Environment = environment, .Folder = Folder.path()});
    }

    void write(const std::string& manifest) const { writeFile(file("list"), manifest); }
    // A manifest of `count` lines, the URL /n/I into the file I.
    void writeList(std::size_t count) const {
        std::string text;
        for (std::size_t i = 1; i <= count; ++i) {
            text += Server.url("/n/" + std::to_string(i)) + " " + std::to_string(i) + "\n";
        }
        write(text);
    }
    // A line of a manifest, with more members than its URL.
    std::string json(const std::string& path, const std::string& more) const {
        return "{\"url\":\"" + Server.url(path) + "\"," + more + "}\n";
    }
    std::string journal() const { return readFile(file("list.journal")); }

    // Names of all files, hidden ones included, but for manifest and journals.
    Words files() const {
        Words all = names();
        std::erase_if(all, [](const std::string& name) { return name.starts_with("list"); });
        return all;
    }
    // Those of `writeList`, whole, and no other.
    void expectFiles(std::size_t count) const {
        EXPECT_EQ(files().size(), count);
        for (std::size_t i = 1; i <= count; ++i) {
            EXPECT_EQ(readFile(file(std::to_string(i))), BatchServer::contentOf("/n/" + std::to_string(i)));
        }
    }

    // One object for each line of standard output.
    static std::vector<Json> results(const Outcome& outcome) {
        std::vector<Json> found;
        std::istringstream lines(outcome.Out);
        for (std::string line; std::getline(lines, line);) {
            found.push_back(Json::parse(line));
        }
        return found;
    }
    static void expectMembers(const Json& object, const std::map<std::string, Json>& members) {
        for (const auto& [name, value] : members) {
            EXPECT_EQ(object.at(name), value) << name;
        }
    }
    static std::ptrdiff_t count(const Outcome& outcome, const std::string& result) {
        return std::ranges::count_if(results(outcome), [&](const Json& one) { return one["result"] == result; });
    }
};

} // namespace batchtest
