#include "tests/docs/PageShell.h"

#include "tests/docs/Page.h"
#include "tests/support/process/BuiltFile.h"

#include <Poco/DeflatingStream.h>
#include <Poco/Net/HTTPBasicCredentials.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/StreamCopier.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <utility>

namespace docstest {
namespace {

namespace fs = std::filesystem;
using testsupport::writeFile;

// Slurm wants a cluster: as many tasks as asked for, each is told which one it is.
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

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

bool loggedIn(const HTTPServerRequest& request) {
    if (!request.hasCredentials()) {
        return false;
    }
    const Poco::Net::HTTPBasicCredentials credentials(request);
    return credentials.getUsername() == "alice" && credentials.getPassword() == "wonderland";
}

const std::string kDataCsv = "id,name\n1,one\n2,two\n"; // 20 bytes
constexpr const char* kDataTag = "\"v1\"";

// All that came: request line, fields, content.
std::string echo(const HTTPServerRequest& request, const std::string& content) {
    std::ostringstream text;
    text << request.getMethod() << ' ' << request.getURI() << '\n';
    for (const auto& [name, value] : request) {
        text << name << ": " << value << '\n';
    }
    text << content << '\n';
    return text.str();
}

std::string gzip(const std::string& text) {
    std::ostringstream packed;
    Poco::DeflatingOutputStream stream(packed, Poco::DeflatingStreamBuf::STREAM_GZIP);
    stream << text;
    stream.close();
    return packed.str();
}

// A file with a tag and a date, of which a part may be asked for.
std::string data(const HTTPServerRequest& request, HTTPServerResponse& response) {
    response.set("ETag", kDataTag);
    response.set("Last-Modified", "Thu, 01 Jan 2026 00:00:00 GMT");
    if (request.get("If-None-Match", "") == kDataTag || request.has("If-Modified-Since")) {
        response.setStatusAndReason(HTTPServerResponse::HTTP_NOT_MODIFIED);
        return "";
    }
    unsigned long first = 0;
    unsigned long last = kDataCsv.size() - 1;
    const std::string range = request.get("Range", "");
    if (std::sscanf(range.c_str(), "bytes=%lu-%lu", &first, &last) < 1) {
        return kDataCsv;
    }
    response.setStatusAndReason(HTTPServerResponse::HTTP_PARTIAL_CONTENT);
    response.set("Content-Range",
                 "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" + std::to_string(kDataCsv.size()));
    return kDataCsv.substr(first, last + 1 - first);
}

struct Handler : Poco::Net::HTTPRequestHandler {
    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        std::string content;
        Poco::StreamCopier::copyToString(request.stream(), content);
        const std::string& path = request.getURI();
        std::string text = request.getMethod() + " with " + std::to_string(content.size()) + " bytes\n";
        response.setContentType("text/plain");
        if (path.ends_with("/missing")) {
            response.setStatusAndReason(HTTPServerResponse::HTTP_NOT_FOUND);
        } else if (path.ends_with("/private") && !loggedIn(request)) {
            response.requireAuthentication("pages");
        } else if (path.ends_with("/moved")) {
            response.setStatusAndReason(HTTPServerResponse::HTTP_FOUND);
            response.set("Location", "/");
        } else if (path.ends_with("/report")) {
            response.set("Content-Disposition", "attachment; filename=\"report.pdf\"");
        } else if (path.ends_with("/items.json")) {
            response.setContentType("application/json");
            text = R"({"items":[1,2]})";
        } else if (path.ends_with("/packed") && request.get("Accept-Encoding", "").find("gzip") != path.npos) {
            response.set("Content-Encoding", "gzip");
            text = gzip("unpacked\n");
        } else if (path.ends_with("/data.csv") && request.getMethod() == "GET") {
            text = data(request, response);
        } else if (path.find("/echo") != path.npos) {
            text = echo(request, content);
        }
        response.setContentLength64(static_cast<Poco::Int64>(text.size()));
        response.send() << (request.getMethod() == "HEAD" ? "" : text);
    }
};

struct Factory : Poco::Net::HTTPRequestHandlerFactory {
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return new Handler; // the server deletes it
    }
};

} // namespace

// Any path answers with a short text, whatever the method; "/missing" with 404; "/private" with 401 unless alice logs
// in; "/moved" leads to "/"; "/report" names its file; "/data.csv" knows tags, dates and ranges; "/packed" compresses;
// "/items.json" is what it says; "/echo" says all that came. A whole URL in the request line, as a proxy gets it, is
// answered in the same way.
struct PageServer {
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{2, 16};
    Poco::Net::HTTPServer Server{new Factory, Threads, Socket, new Poco::Net::HTTPServerParams};

    PageServer() { Server.start(); }
    ~PageServer() {
        Server.stopAll(true);
        Threads.joinAll();
    }
};

PageShell::PageShell() : Server(std::make_shared<PageServer>()) {
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
    const std::string authority = "127.0.0.1:" + std::to_string(Server->Socket.address().port());
    const std::string host = testsupport::builtFile("lib/libvantik_embedded.so");
    for (const auto& [shown, real] : {std::pair<std::string, std::string>("https://example.org", "http://" + authority),
                                      {"http://example.org", "http://" + authority},
                                      {"proxy.example.org:3128", authority},
                                      {"/path/to/libhost1.so", host},
                                      {"/path/to/libhost2.so", host}}) {
        text = replaced(text, shown, real);
    }
    return text;
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
