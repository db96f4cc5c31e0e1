#include "tests/docs/ShownCommandTable.h"

namespace docstest {
namespace {

constexpr const char* kInstallPage = "tests/install/InstallPageTest.cpp: InstallPage, CommandsWorkInTheOrderOfThePage";
constexpr const char* kPackaging =
    "builds a release, which takes minutes, and asks lintian, which the tests do without; "
    "tests/install/PackagesTest.cpp makes the same packages of the build under test";
constexpr const char* kInstalling = "changes the machine; tests/install/PackagesTest.cpp unpacks the packages instead";
constexpr const char* kMeasuring = "measures for minutes, and means nothing unless it is alone on the machine";
constexpr const char* kReplaying = "fuzz/CMakeLists.txt: .replaysItsSeeds";
constexpr const char* kClang = "needs clang, which the tests do without; they replay the seeds";
constexpr const char* kDoxygen = "needs Doxygen, which the tests do without; scripts/check runs it";
constexpr const char* kBenchCheck =
    "tests/scripts/BenchCheckTest.cpp: BenchCheck, MoreThanThatIsNamedUntilTheFileSaysSo";
constexpr const char* kBenchFigures = "tests/bench/BenchFiguresTest.cpp: BenchFigures, FillThePage";
constexpr const char* kBenchRun = "tests/bench/BenchRunTest.cpp: BenchRun, PlaysEveryKindOfJob";
constexpr const char* kPython = "tests/scripts/RunTest.cpp: Run, AnInterpreterFindsThePackageWhateverWasBuiltBefore";
constexpr const char* kStreamMemory = "bench/CMakeLists.txt: StreamMemory.DoesNotGrowWithTheLength";

// clang-format off
constexpr CommandRow kCommands[] = {
    {"CONTRIBUTING.md", "scripts/deps", Way::Elsewhere, "tests/scripts/DepsTest.cpp: Deps, WhatIsMissingIsInstalled"},
    {"CONTRIBUTING.md", "cmake --preset dev", Way::Sources, ""},
    {"CONTRIBUTING.md", "cmake --build --preset dev", Way::Sources, ""},
    {"CHANGELOG.md", "scripts/run python", Way::Elsewhere, kPython},
    {"CONTRIBUTING.md", "scripts/run python", Way::Elsewhere, kPython},
    {"CONTRIBUTING.md", "scripts/test --only 'Messages.*'", Way::Here, ""},
    {"CONTRIBUTING.md", "scripts/test --quick", Way::Here, ""},
    {"CONTRIBUTING.md", "scripts/test", Way::Here, ""},
    {"CONTRIBUTING.md", "scripts/test --quick --libcurl curl8/usr/lib/x86_64-linux-gnu", Way::Elsewhere, "tests/scripts/TestTest.cpp: AllTests, AnotherLibcurlServesAllOfThem"},
    {"CONTRIBUTING.md", "apt-get download libcurl4/bookworm-backports", Way::Never, "needs Debian's backports"},
    {"CONTRIBUTING.md", "dpkg-deb -x libcurl4_8*.deb curl8", Way::Never, "needs Debian's backports"},
    {"CONTRIBUTING.md", "scripts/format", Way::Never, "needs clang-format and git, which the tests do without"},
    {"CONTRIBUTING.md", "scripts/docs", Way::Never, kDoxygen},
    {"CONTRIBUTING.md", "scripts/picture", Way::Elsewhere, "tests/docs/PictureTest.cpp: Picture, ShowsWhatTheProgramPrints"},
    {"CONTRIBUTING.md", "scripts/report-picture", Way::Never, "builds in the sources; what draws is tests/cli/report/ReportPageTest.cpp"},
    {"CONTRIBUTING.md", "scripts/check", Way::Never, "scripts/format, scripts/tidy, scripts/docs and scripts/test one after the other, and the first two need tools of clang"},
    {"CONTRIBUTING.md", "scripts/tidy cli/main.cpp", Way::Never, "needs clang-tidy"},
    {"CONTRIBUTING.md", "scripts/package", Way::Never, kPackaging},
    {"CONTRIBUTING.md", "scripts/coverage", Way::Never, "builds everything anew and runs all tests, this one among them"},
    {"CONTRIBUTING.md", "scripts/mutate --count 20", Way::Never, "builds the library and runs its tests for each of the changes"},
    {"CONTRIBUTING.md", "bench/run --quick", Way::Elsewhere, kBenchRun},
    {"CONTRIBUTING.md", "scripts/bench-check", Way::Elsewhere, kBenchCheck},
    {"CONTRIBUTING.md", "scripts/fuzz", Way::Elsewhere, "tests/scripts/FuzzTest.cpp: FuzzDrivers, AllRunForAMinuteWithoutArguments"},
    {"CONTRIBUTING.md", "export CMAKE_CXX_COMPILER_LAUNCHER=ccache", Way::Never, "a variable of CMake for a program that the tests do without"},

    {"README.md", "scripts/test", Way::Here, ""},
    {"README.md", "scripts/package", Way::Never, kPackaging},
    {"README.md", "sudo apt install ./build/packages/*.deb", Way::Never, kInstalling},
    {"README.md", "cmake --install", Way::Elsewhere, kInstallPage},

    {"docs/python.md", "scripts/run python", Way::Elsewhere, kPython},
    {"docs/python.md", "scripts/deps build python", Way::Elsewhere, "tests/scripts/DepsTest.cpp: Deps, WhatIsMissingIsInstalled"},
    {"docs/python.md", "pip install .", Way::Elsewhere, "python/tests/test_wheel.py: test_pip_installs_it_with_all_that_it_loads"},
    {"CHANGELOG.md", "pip install .", Way::Elsewhere, "python/tests/test_wheel.py: test_pip_installs_it_with_all_that_it_loads"},
    {"docs/python.md", "scripts/package", Way::Never, kPackaging},
    {"docs/python.md", "sudo apt install ./build/packages/libnetrove0_*.deb ./build/packages/python3-netrove_*.deb", Way::Never, kInstalling},
    {"docs/python.md", "PYTHONPATH=build/dev/python python3", Way::Elsewhere, "python/tests/CMakeLists.txt: PYTHONPATH=${NETROVE_PYTHON_FOLDER}"},

    {"bench/README.md", "scripts/deps bench", Way::Elsewhere, "tests/scripts/DepsTest.cpp: Deps, WhatIsMissingIsInstalled"},
    {"bench/README.md", "bench/run", Way::Never, kMeasuring},
    {"bench/README.md", "bench/run --quick", Way::Elsewhere, kBenchRun},
    {"bench/README.md", "bench/run --only small --rounds 15", Way::Elsewhere, kBenchRun},
    {"bench/README.md", "bench/run --only python --output build/bench/python.json", Way::Elsewhere, "tests/bench/BenchRunTest.cpp: PlaysTheJobsOfPython"},
    {"bench/README.md", "bench/run --against ../netrove-old/build/release", Way::Never, "builds the peers with another netrove, which takes minutes"},
    {"bench/README.md", "cmake --preset release && cmake --build --preset release --target netrove_stream_memory", Way::Sources, ""},
    {"bench/README.md", "bench/figures.py", Way::Elsewhere, kBenchFigures},
    {"bench/README.md", "bench/figures.py --page", Way::Elsewhere, kBenchFigures},
    {"bench/README.md", "bench/figures.py --page build/bench/results.json build/bench/python.json", Way::Elsewhere, "tests/bench/BenchFiguresTest.cpp: OfTwoRunsStandOneAfterTheOther"},
    {"bench/README.md", "scripts/bench-check", Way::Elsewhere, kBenchCheck},
    {"bench/README.md", "scripts/bench-check --update", Way::Elsewhere, kBenchCheck},
    {"bench/README.md", "build/release/bin/netrove_stream_memory", Way::Elsewhere, kStreamMemory},

    {"docs/api.md", "scripts/docs", Way::Never, kDoxygen},

    {"docs/batch.md", "netrove batch", Way::Never, "the name of the command in the heading"},
    {"docs/batch.md", "sbatch --array", Way::Elsewhere, "tests/cli/batch/BatchShardCommandTest.cpp: BatchShardCommand, ASlurmArraySaysWhich"},

    {"docs/cli.md", "netrove COMMAND --help", Way::Elsewhere, "tests/cli/commands/DescribeCommandTest.cpp: HelpOption, WritesToStandardOutput"},
    {"docs/cli.md", "netrove COMMAND --help all", Way::Elsewhere, "tests/cli/commands/DescribeCommandTest.cpp: HelpOption, WritesToStandardOutput"},
    {"docs/cli.md", "man netrove", Way::Elsewhere, "tests/cli/options/pages/ReferenceTest.cpp: Reference, EveryOptionIsInEveryForm"},
    {"docs/cli.md", R"(printf 'Authorization: Bearer %s\n' "$TOKEN" | netrove get -H @- https://example.org/)", Way::Here, ""},
    {"docs/cli.md", "NETROVE_BEARER=t0ken netrove get --bearer @env https://example.org/", Way::Here, ""},
    {"docs/cli.md", "netrove batch", Way::Never, "the name of the command in a sentence; lines with a list are below it"},

    {"docs/dependencies.md", "scripts/deps bench", Way::Elsewhere, "tests/scripts/DepsTest.cpp: Deps, WhatIsMissingIsInstalled"},
    {"docs/dependencies.md", "netrove batch", Way::Never, "the name of the command in a sentence"},

    {"docs/embedding.md", "g++ -std=c++20 get_to_memory.cpp -o get_to_memory $(pkg-config --cflags --libs netrove)", Way::Elsewhere, "tests/install/EmbeddingPageTest.cpp: EmbeddingPage, LineWithoutCMakeBuildsTheFirstExample"},

    {"docs/hosting.md", "cmake --preset release -DNETROVE_EMBEDDED_HOST=OFF -DNETROVE_BUILD_TESTS=OFF -DNETROVE_HOST_LIBRARIES=\"/path/to/libhost1.so;/path/to/libhost2.so\"", Way::Sources, ""},
    {"docs/hosting.md", "cmake --build --preset release --target netrove", Way::Sources, "CMakeFiles/netrove_static.dir/hostclass/ModuleEntry.cpp.o"},
    {"docs/hosting.md", "cmake --install", Way::Elsewhere, "tests/docs/ShownCommandsTest.cpp: ModuleForAnotherHost, IsInstalledAsThePageSays"},

    {"docs/install.md", "scripts/package", Way::Never, kPackaging},
    {"docs/install.md", "sudo apt install ./build/packages/*.deb", Way::Never, kInstalling},
    {"docs/install.md", "packaging/try-in-chroot build/packages", Way::Never, "needs root, debootstrap and a Debian mirror"},
    {"docs/install.md", "cmake --preset release", Way::Sources, ""},
    {"docs/install.md", "cmake --build --preset release", Way::Sources, ""},
    {"docs/install.md", "cmake --install build/release --prefix \"$HOME/netrove\"", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "\"$HOME/netrove/bin/netrove\" --version", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "mv \"$HOME/netrove\" \"$HOME/tools\"", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "\"$HOME/tools/bin/netrove\" get https://example.org/", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "cmake -S . -B build -DCMAKE_PREFIX_PATH=\"$HOME/tools\"", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "cmake --build build", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "build/fetch https://example.org/", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "export PKG_CONFIG_PATH=\"$HOME/tools/lib/pkgconfig\"", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "g++ -std=c++20 main.cpp -o fetch $(pkg-config --cflags --libs netrove-client) -Wl,-rpath,\"$(pkg-config --variable=libdir netrove-client)\"", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "./fetch https://example.org/", Way::Elsewhere, kInstallPage},
    {"docs/install.md", "cmake --install", Way::Elsewhere, "tests/docs/ShownCommandsTest.cpp: ModuleForAnotherHost, IsInstalledAsThePageSays"},

    {"docs/performance.md", "bench/run", Way::Never, kMeasuring},
    {"docs/performance.md", "bench/figures.py --page", Way::Elsewhere, kBenchFigures},

    {"fuzz/README.md", "cmake --preset fuzz && cmake --build --preset fuzz", Way::Never, kClang},
    {"fuzz/README.md", "scripts/fuzz", Way::Elsewhere, "tests/scripts/FuzzTest.cpp: FuzzDrivers, AllRunForAMinuteWithoutArguments"},
    {"fuzz/README.md", "scripts/fuzz exchange 3600", Way::Elsewhere, "tests/scripts/FuzzTest.cpp: FuzzDrivers, OneRunsAsLongAsIsSaid"},
    {"fuzz/README.md", "build/fuzz/bin/fuzz_iri fuzz/seeds/iri/*", Way::Elsewhere, kReplaying},
};
// clang-format on

constexpr const char* kOneFails =
    "echo 'https://example.org/missing gone.csv' > more.txt\n"
    "cat list.txt >> more.txt; netrove batch --force more.txt > results.jsonl || test $? = 22";
constexpr const char* kOneDone = "\"url\":\"https://example.org/b\",\"target\":\"b.csv\",\"status\":200";
constexpr const char* kOnePlanned =
    "\"target\":\"b.csv\",\"status\":null,\"bytes\":0,\"seconds\":0.0,\"attempts\":0,\"result\":\"planned\"";
constexpr const char* kOneSkipped = "\"result\":\"skipped\"";
constexpr const char* kAnew = "rm -f *.csv *.journal*";

// clang-format off
constexpr ResultRow kResults[] = {
    {"CONTRIBUTING.md", "scripts/test --only 'Messages.*'", "", "\n2 passed, 0 failed\n", "build/dev/Testing/Temporary/LastTest.log", "Messages.Stand"},
    {"CONTRIBUTING.md", "scripts/test --quick", "", "\n2 passed, 0 failed\n", "build/dev/Testing/Temporary/LastTest.log", "Messages.Stand"},
    {"CONTRIBUTING.md", "scripts/test", "", "\n5 passed, 0 failed\n", "build/tsan/Testing/Temporary/LastTest.log", "Threads.Stand"},

    {"README.md", "scripts/run", "", "Every step did what it says.", "", ""},
    {"README.md", "scripts/test", "", "\n5 passed, 0 failed\n", "build/asan/Testing/Temporary/LastTest.log", "Messages.Stand"},
    {"README.md", "scripts/run get https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"README.md", "scripts/run save https://example.org/data.csv", "", "", "data.csv", "1,one\n"},
    {"README.md", "scripts/run send https://example.org/items --json '{\"name\":\"x\"}'", "", "POST with 12 bytes\n", "", ""},
    {"README.md", "scripts/run send https://example.org/upload -T big.bin --progress", "", "PUT with 13 bytes\n", "", ""},
    {"README.md", "scripts/run proxy https://example.org/", "", "No proxy: a direct connection.\n", "", ""},
    {"README.md", "scripts/run describe --format json", "", "{\n  \"name\": \"vantik.internal.webservices.HTTPConnectionAdapter\",", "", ""},
    {"README.md", "scripts/run --help", "", "Usage: netrove ", "", ""},

    {"docs/batch.md", "netrove batch list.txt", kAnew, kOneDone, "b.csv", "GET with 0 bytes\n"},
    {"docs/batch.md", "netrove batch list.txt", "", kOneSkipped, "", ""},
    {"docs/batch.md", "netrove batch list.txt --retry 5", "", kOneSkipped, "", ""},
    {"docs/batch.md", "jq -r 'select(.result == \"failed\") | .url' results.jsonl", kOneFails, "https://example.org/missing\n", "", ""},
    {"docs/batch.md", "netrove batch list.txt > results.jsonl", kAnew, "", "results.jsonl", "\"result\":\"done\""},
    {"docs/batch.md", "netrove batch failed.txt", "rm -f *.csv; cp list.txt failed.txt", kOneDone, "", ""},
    {"docs/batch.md", "netrove batch list.txt --report run.html --report batch.prom", kAnew, kOneDone, "batch.prom", "# TYPE"},
    {"docs/batch.md", "srun -n 8 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/batch.md", "mpirun -n 8 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/batch.md", "seq 8 | NETROVE_SHARDS=8 parallel -N0 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/batch.md", "parallel netrove batch list.txt --shard {}/8 ::: 1 2 3 4 5 6 7 8", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/batch.md", "netrove batch list.txt --shard 2/8 --dry-run", kAnew, kOnePlanned, "", ""},

    {"docs/cli.md", "netrove get https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/cli.md", "netrove get -i https://example.org/", "", "HTTP/1.1 200 OK\r\n", "", ""},
    {"docs/cli.md", "netrove get -o page.html https://example.org/", "", "", "page.html", "GET with 0 bytes\n"},
    {"docs/cli.md", "netrove save https://example.org/data.csv", "", "", "data.csv", "1,one\n"},
    {"docs/cli.md", "netrove save --force https://example.org/data.csv", "echo old > data.csv", "", "data.csv", "1,one\n"},
    {"docs/cli.md", "netrove save https://example.org/data.csv copy.csv", "", "", "copy.csv", "1,one\n"},
    {"docs/cli.md", "netrove save -C - https://example.org/data.csv part.csv", "printf '1,' > part.csv", "", "part.csv", "1,one\n"},
    {"docs/cli.md", "netrove get -r 0-3 https://example.org/data.csv", "", "id,n", "", ""},
    {"docs/cli.md", "netrove get --no-fail https://example.org/missing", "", "GET with 0 bytes\n", "", ""},
    {"docs/cli.md", "netrove get -I https://example.org/", "", "HTTP/1.1 200 OK", "", ""},
    {"docs/cli.md", "netrove get -D heads.txt https://example.org/", "", "GET with 0 bytes\n", "heads.txt", "HTTP/1.1 200 OK"},
    {"docs/cli.md", "netrove save --etag-compare tag --etag-save tag https://example.org/data.csv new.csv", "", "", "new.csv", "1,one\n"},
    {"docs/cli.md", "netrove send -d @notes.txt https://example.org/form", "echo twenty bytes in all > notes.txt", "POST with 20 bytes\n", "", ""},
    {"docs/cli.md", "netrove send -T big.bin https://example.org/big.bin", "", "PUT with 13 bytes\n", "", ""},
    {"docs/cli.md", "netrove send -T - https://example.org/log < notes.txt", "echo twenty bytes in all > notes.txt", "PUT with 20 bytes\n", "", ""},
    {"docs/cli.md", "netrove send --format json https://example.org/items", "", "\"content\":\"GET with 0 bytes\\n\"", "", ""},
    {"docs/cli.md", "netrove send --format json -o items.json https://example.org/items", "", "\"file\":\"items.json\"", "items.json", "GET with 0 bytes\n"},
    {"docs/cli.md", "netrove proxy https://example.org/", "export https_proxy=http://proxy.corp:3128 http_proxy=http://proxy.corp:3128", "proxy.corp", "", ""},
    {"docs/cli.md", "netrove get -x none https://example.org/", "export https_proxy=http://127.0.0.1:1 http_proxy=http://127.0.0.1:1", "GET with 0 bytes\n", "", ""},
    {"docs/cli.md", "srun -n 8 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/cli.md", "mpirun -n 8 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},
    {"docs/cli.md", "seq 8 | NETROVE_SHARDS=8 parallel -N0 netrove batch list.txt", kAnew, kOneDone, "c.csv", "GET with 0 bytes\n"},

    {"docs/comparison.md", "netrove get https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove save https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove get -O https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save https://example.org/data.csv copy.csv", "rm -f copy.csv", "", "copy.csv", "1,one\n"},
    {"docs/comparison.md", "netrove get -o copy.csv https://example.org/data.csv", "rm -f copy.csv", "", "copy.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save --create-dirs --output-dir files https://example.org/data.csv", "", "", "files/data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save -J https://example.org/report", "", "", "report.pdf", "GET with 0 bytes\n"},
    {"docs/comparison.md", "netrove save --force https://example.org/data.csv", "echo old > data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save --skip-existing https://example.org/data.csv", "echo old > data.csv", "", "data.csv", "old\n"},
    {"docs/comparison.md", "netrove save https://example.org/data.csv whole.csv", "", "", "whole.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save https://example.org/a.csv https://example.org/b.csv", "rm -f a.csv b.csv", "", "b.csv", "GET with 0 bytes\n"},
    {"docs/comparison.md", "netrove save -Z https://example.org/a.csv https://example.org/b.csv", "rm -f a.csv b.csv", "", "b.csv", "GET with 0 bytes\n"},
    {"docs/comparison.md", "netrove batch list.txt", "rm -f a.csv b.csv c.csv list.txt.journal", "", "c.csv", "GET with 0 bytes\n"},
    {"docs/comparison.md", "seq 3 | sed 's,.*,https://example.org/& &.txt,' | netrove batch -", "", "", "3.txt", "GET with 0 bytes\n"},
    {"docs/comparison.md", "netrove batch -j 16 --parallel-max-host 4 list.txt", "rm -f a.csv b.csv c.csv list.txt.journal", "", "c.csv", "GET with 0 bytes\n"},
    {"docs/comparison.md", "netrove save -C - https://example.org/data.csv", "printf id,name > data.csv", "", "data.csv", "id,name\n1,one\n"},
    {"docs/comparison.md", "netrove save --retry 5 https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove get -r 0-6 https://example.org/data.csv", "", "id,name", "", ""},
    {"docs/comparison.md", "netrove save -z data.csv https://example.org/data.csv", "echo old > data.csv", "", "data.csv", "old\n"},
    {"docs/comparison.md", "netrove save --etag-save tag --etag-compare tag https://example.org/data.csv", "rm -f data.csv tag", "", "tag", "v1"},
    {"docs/comparison.md", "netrove save -R https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save --digest sha256:7c1329fc542fa4a0ced6231bfce0f56763b53905a22ba04142fa0724171b0301 https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save --limit-rate 1M https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove save --max-filesize 10M https://example.org/data.csv", "rm -f data.csv", "", "data.csv", "1,one\n"},
    {"docs/comparison.md", "netrove get --compressed https://example.org/packed", "", "unpacked\n", "", ""},
    {"docs/comparison.md", "netrove get -I https://example.org/", "", "HTTP/1.1 200 OK", "", ""},
    {"docs/comparison.md", "netrove get -i https://example.org/", "", "HTTP/1.1 200 OK", "", ""},
    {"docs/comparison.md", "netrove get -D head.txt https://example.org/", "", "GET with 0 bytes\n", "head.txt", "HTTP/1.1 200 OK"},
    {"docs/comparison.md", "netrove get -v https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --pretty=always https://example.org/items.json", "", "  \"items\": [", "", ""},
    {"docs/comparison.md", "netrove get -s -o /dev/null -w '%{http_code}' https://example.org/", "", "200", "", ""},
    {"docs/comparison.md", "netrove send --format json https://example.org/", "", "\"status\":200", "", ""},
    {"docs/comparison.md", "netrove send -f https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --no-fail https://example.org/missing", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -sS https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -fsSL https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove send -L https://example.org/moved", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --no-follow https://example.org/moved", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --max-redirs 3 https://example.org/moved", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove send -d a=1 -d b=2 https://example.org/echo", "", "\na=1&b=2\n", "", ""},
    {"docs/comparison.md", "netrove send -F text=hello -F file=@notes.txt https://example.org/echo", "", "filename=\"notes.txt\"", "", ""},
    {"docs/comparison.md", "netrove send --data-urlencode 'q=a&b' https://example.org/echo", "", "\nq=a%26b\n", "", ""},
    {"docs/comparison.md", "netrove send --json '{\"a\":1}' https://example.org/echo", "", "Accept: application/json\n", "", ""},
    {"docs/comparison.md", "netrove get -G -d q=1 https://example.org/echo", "", "GET /echo?q=1\n", "", ""},
    {"docs/comparison.md", "netrove send -T big.bin https://example.org/upload", "", "PUT with 13 bytes\n", "", ""},
    {"docs/comparison.md", "seq 10 | netrove send -T - https://example.org/upload", "", "PUT with 21 bytes\n", "", ""},
    {"docs/comparison.md", "netrove send -X DELETE https://example.org/items/1", "", "DELETE with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -H 'X-A: 1' https://example.org/echo", "", "X-A: 1\n", "", ""},
    {"docs/comparison.md", "netrove get -H Accept: https://example.org/echo", "", "GET /echo\nHost: ", "", ""},
    {"docs/comparison.md", "netrove get -A me https://example.org/echo", "", "User-Agent: me\n", "", ""},
    {"docs/comparison.md", "netrove get -e https://example.org/ https://example.org/echo", "", "Referer: https://example.org/\n", "", ""},
    {"docs/comparison.md", "netrove get -b n=v https://example.org/echo", "", "\nCookie: n=v", "", ""},
    {"docs/comparison.md", "netrove get -u alice:wonderland https://example.org/private", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "NETROVE_PASSWORD=wonderland netrove get -u alice https://example.org/private", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --bearer T https://example.org/echo", "", "Authorization: Bearer T\n", "", ""},
    {"docs/comparison.md", "netrove get --netrc-file logins https://example.org/private", "printf 'machine 127.0.0.1 login alice password wonderland\\n' > logins; chmod 600 logins", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -x proxy.example.org:3128 https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -x none https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --cacert ca.pem https://example.org/", "cp /etc/ssl/certs/ca-certificates.crt ca.pem", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -k https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --connect-timeout 5s https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get -m 60 https://example.org/", "", "GET with 0 bytes\n", "", ""},
    {"docs/comparison.md", "netrove get --config settings https://example.org/", "echo 'user-agent = me' > settings", "GET with 0 bytes\n", "", ""},
};
// clang-format on

} // namespace

std::span<const CommandRow> commandTable() {
    return kCommands;
}

std::span<const ResultRow> resultTable() {
    return kResults;
}

} // namespace docstest
