#include "cli/batch/run/BatchCommit.h"

#include "cli/failures/CliFailure.h"

#include <netrove/descriptor.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostFiles = 1000;
constexpr auto kLongestWait = std::chrono::seconds(1);
constexpr std::size_t kFewestFiles = 64;
// What a file may cost of the time that the disk takes: little beside its transfer.
constexpr auto kDiskTimeOfFile = std::chrono::microseconds(20);
// From so many files on, one call for the whole file system is faster than one for each.
constexpr std::size_t kManyFiles = 16;

// Each file of the two groups under way has two descriptors, and as many are left for everything else.
std::size_t mostFiles() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 1;
    }
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, std::max<rlim_t>(limit.rlim_cur, 8 * kMostFiles));
        setrlimit(RLIMIT_NOFILE, &limit); // where it fails, the groups are as small as before
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    return std::clamp<std::size_t>(limit.rlim_cur / 8, 1, kMostFiles);
}

template <class Step>
void step(ReceivedLine& line, Step step) {
    if (line.Outcome.Failed) {
        return;
    }
    try {
        step();
    } catch (const netrove::Error& error) {
        line.Outcome.Failed = judge(error, {});
    }
}

int openFolder(const std::filesystem::path& folder) {
    return retried(
        [&] { return openat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
}

} // namespace

std::size_t nextGroup(std::size_t files, std::chrono::nanoseconds disk, std::size_t most) {
    const auto wanted = static_cast<std::size_t>(std::max<std::int64_t>(disk / kDiskTimeOfFile, 0));
    // By steps: one slow group says little of the next one.
    return std::min(most, std::clamp(wanted, std::max(kFewestFiles, files / 2), std::max(kFewestFiles, files * 2)));
}

BatchCommit::BatchCommit(BatchJournal* journal, BatchReport& report, std::function<void(std::exception_ptr)> onFailure)
    : Journal(journal), Report(report), OnFailure(std::move(onFailure)), Most(mostFiles()),
      Enough(std::min(kFewestFiles, Most)), Thread([this] { work(); }) {}

BatchCommit::~BatchCommit() {
    {
        const std::lock_guard lock(Guard);
        Ended = true;
    }
    Changed.notify_all();
    Thread.join();
}

void BatchCommit::add(ReceivedLine line) {
    std::unique_lock lock(Guard);
    Changed.wait(lock, [this] { return Open.size() < Most || Broken; });
    if (Broken) {
        return;
    }
    if (Open.empty()) {
        Due = std::chrono::steady_clock::now() + kLongestWait;
    }
    Open.push_back(std::move(line));
    if (Open.size() == 1 || Open.size() == Enough) {
        Changed.notify_all();
    }
}

void BatchCommit::hurry() {
    {
        const std::lock_guard lock(Guard);
        Hurried = !Open.empty();
    }
    Changed.notify_all();
}

void BatchCommit::work() {
    std::unique_lock lock(Guard);
    for (;;) {
        Changed.wait(lock, [this] { return Ended || !Open.empty(); });
        if (Open.empty()) {
            return;
        }
        Changed.wait_until(lock, Due, [this] { return Ended || Hurried || Open.size() >= Enough; });
        Hurried = false;
        Group group = std::exchange(Open, {});
        lock.unlock();
        Changed.notify_all();
        std::size_t next = 0;
        try {
            next = finish(group);
        } catch (...) {
            lock.lock();
            Broken = true;
            lock.unlock();
            Changed.notify_all();
            OnFailure(std::current_exception());
            return;
        }
        group.clear();
        lock.lock();
        Enough = next;
    }
}

std::size_t BatchCommit::finish(Group& group) {
    std::chrono::nanoseconds disk{};
    const auto timed = [&disk](auto sync) {
        const auto start = std::chrono::steady_clock::now();
        sync();
        disk += std::chrono::steady_clock::now() - start;
    };
    timed([&] { settle(group); });
    if (Journal != nullptr) {
        // What has its name though the records below are missing is known by its inode number.
        for (ReceivedLine& line : group) {
            if (!line.Outcome.Failed && line.Facts.st_mode != 0) {
                Journal->written(line.Line, line.Outcome.Status, static_cast<std::uint64_t>(line.Facts.st_size),
                                 line.Facts.st_ino);
            }
        }
        timed([&] { Journal->sync(); });
    }
    for (ReceivedLine& line : group) {
        step(line, [&] { line.File.name(); });
    }
    timed([&] { syncFolders(group); });
    record(group);
    return nextGroup(group.size(), disk, Most);
}

// Brings all content to the disk.
void BatchCommit::settle(Group& group) {
    std::map<dev_t, std::vector<ReceivedLine*>> byDisk;
    for (ReceivedLine& line : group) {
        if (fstat(line.File.descriptor(), &line.Facts) != 0) {
            line.Facts = {};
        }
        byDisk[line.Facts.st_dev].push_back(&line);
    }
    for (const auto& [disk, lines] : byDisk) {
        const int any = lines.front()->File.descriptor();
        const bool flushed = lines.size() >= kManyFiles && retried([&] { return syncfs(any); }) == 0;
        for (std::size_t i = 0; !flushed && lines.size() > 1 && i < lines.size(); ++i) {
            sync_file_range(lines[i]->File.descriptor(), 0, 0, SYNC_FILE_RANGE_WRITE); // only to begin with all of them
        }
        for (ReceivedLine* line : lines) {
            step(*line, [&] { line->File.settle(flushed); });
        }
    }
}

void BatchCommit::syncFolders(const Group& group) {
    std::set<std::filesystem::path> folders;
    for (const ReceivedLine& line : group) {
        folders.insert(line.File.target().parent_path());
    }
    for (const std::filesystem::path& folder : folders) {
        // What may not be read, or is on a file system that cannot do it, the system brings there in its time.
        const Descriptor opened(openFolder(folder));
        const bool synced = opened.Number >= 0 && retried([&] { return fsync(opened.Number); }) == 0;
        if (!synced && errno != EACCES && errno != EINVAL && errno != EROFS) {
            failSystem(failure::kFileNotWritten, folder.string(), errno);
        }
    }
}

void BatchCommit::record(Group& group) {
    if (Journal != nullptr) {
        for (const ReceivedLine& line : group) {
            if (line.Outcome.Failed) {
                Journal->failed(line.Line, line.Outcome.Failed->Message);
            }
        }
        Journal->kept();
        Journal->sync();
    }
    std::vector<EndedTransfer> ended;
    ended.reserve(group.size());
    for (const ReceivedLine& line : group) {
        ended.push_back({line.Line, line.Outcome});
    }
    Report.ended(ended);
}

} // namespace netrove::cli
