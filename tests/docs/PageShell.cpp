#include "tests/docs/PageShell.h"

#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"

#include <filesystem>

namespace docstest {
namespace {

namespace fs = std::filesystem;
using testsupport::writeFile;

// Slurm wants a cluster: as many tasks as asked for, each told which it is.
constexpr const char* kSrun = "#!/bin/sh\nset -e\ntasks=$2\nshift 2\nfor id in $(seq 0 $((tasks - 1))); do\n"
                              "    SLURM_JOB_ID=1 SLURM_STEP_ID=0 SLURM_PROCID=$id SLURM_NTASKS=$tasks \"$@\"\n"
                              "done\n";

// What scripts/run and scripts/test ask of the project.
const std::string kProject = "cmake_minimum_required(VERSION 3.25)\n"
                             "project(pages LANGUAGES NONE)\n"
                             "enable_testing()\n"
                             "add_custom_target(netrove_cli ALL\n"
                             "    COMMAND ${CMAKE_COMMAND} -E make_directory bin\n"
                             "    COMMAND ${CMAKE_COMMAND} -E create_symlink " +
                             testsupport::programFile() +
                             " bin/netrove)\n"
                             "add_custom_target(netrove_threads_tests)\n"
                             "add_test(NAME Messages.Stand COMMAND ${CMAKE_COMMAND} -E true)\n"
                             "add_test(NAME Threads.Stand COMMAND ${CMAKE_COMMAND} -E true)\n"
                             "set_tests_properties(Threads.Stand PROPERTIES LABELS threads)\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

} // namespace

PageShell::PageShell() {
    const fs::path root(NETROVE_SOURCES);
    for (const char* folder : {"bin", "work", "sources"}) {
        fs::create_directory(Folder.file(folder));
    }
    fs::create_symlink(testsupport::programFile(), Folder.file("bin/netrove"));
    const std::string srun = Folder.file("bin/srun");
    writeFile(srun, kSrun);
    fs::permissions(srun, fs::perms::owner_all);

    for (const char* name : {"notes.txt", "big.bin"}) {
        writeFile(file(name), "some content\n");
    }
    std::string list;
    for (const std::string name : {"a", "b", "c"}) {
        list += here("https://example.org/") + name + " " + name + ".csv\n";
    }
    writeFile(file("list.txt"), list);
    writeFile(file("CMakeLists.txt"), kProject);
    for (const char* name : {"scripts", "CMakePresets.json"}) {
        fs::create_symlink(root / name, file(name));
    }

    for (const auto& entry : fs::directory_iterator(root)) {
        if (entry.path().filename() != "build") {
            fs::create_symlink(entry.path(), sources(entry.path().filename().string()));
        }
    }
}

std::string PageShell::here(std::string text) const {
    text = replaced(text, "https://example.org", "http://" + Server.authority());
    text = replaced(text, "http://example.org", "http://" + Server.authority());
    text = replaced(text, "proxy.example.org:3128", Server.authority());
    return replaced(replaced(text, "/path/to/libhost1.so", testsupport::builtFile("lib/libvantik_embedded.so")),
                    "/path/to/libhost2.so", testsupport::builtFile("lib/libvantik_embedded.so"));
}

testsupport::Outcome PageShell::bash(const std::string& script, const std::string& folder) const {
    return testsupport::run({"-c", script},
                            {.Input = "",
                             .Environment = {{"PATH", Folder.file("bin") + ":/usr/local/bin:/usr/bin:/bin"},
                                             {"HOME", Folder.path()},
                                             {"NETROVE_SKIP_DEPS", "1"},
                                             // Open MPI asks whether it may run as root, more tasks than there are
                                             // cores, and without looking at the network or for a real Slurm.
                                             {"OMPI_ALLOW_RUN_AS_ROOT", "1"},
                                             {"OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1"},
                                             {"OMPI_MCA_btl", "self"},
                                             {"OMPI_MCA_oob_tcp_if_include", "lo"},
                                             {"OMPI_MCA_plm", "isolated"},
                                             {"OMPI_MCA_ras", "^slurm"},
                                             {"OMPI_MCA_rmaps_base_oversubscribe", "1"}},
                             .Folder = folder,
                             .Executable = "/bin/bash"});
}

testsupport::Outcome PageShell::run(const std::string& command, const std::string& before) const {
    const std::string first = before.empty() ? "" : "{\n" + before + "\n} > before 2>&1 || { cat before; exit 99; }\n";
    return bash(here(first + command), Folder.file("work"));
}

testsupport::Outcome PageShell::runInSources(const std::string& command, const std::string& target) const {
    std::string script = here(command);
    if (script.find("cmake --build ") != script.npos) {
        script += " -- -n";
    }
    if (!target.empty()) {
        script += " && " + command.substr(0, command.find(" --target ")) + " --target " + target;
    }
    return bash(script, Folder.file("sources"));
}

} // namespace docstest
