#include <netrove/temporaryentry.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace netrove {

namespace {

std::vector<TemporaryEntry*> theEntries; // guarded by theLock
std::atomic<bool> theLock = false;       // a lock that a signal handler can take as well

// Holds the lock. Signals are blocked on this thread meanwhile: their handler would wait for the lock forever.
class EntriesLock {
public:
    EntriesLock() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
            sigaddset(&ending, number);
        }
        pthread_sigmask(SIG_BLOCK, &ending, &Before);
        while (theLock.exchange(true)) {
            theLock.wait(true);
        }
    }
    ~EntriesLock() {
        const int savedErrno = errno;
        theLock = false;
        theLock.notify_one();
        pthread_sigmask(SIG_SETMASK, &Before, nullptr);
        errno = savedErrno;
    }
    EntriesLock(const EntriesLock&) = delete;
    EntriesLock& operator=(const EntriesLock&) = delete;

private:
    sigset_t Before;
};

} // namespace

TemporaryEntry::~TemporaryEntry() {
    remove();
}

void TemporaryEntry::remove() {
    if (!There) {
        return;
    }
    const EntriesLock lock;
    unlinkat(Folder, name(), 0);
    std::erase(theEntries, this);
    There = false;
}

void TemporaryEntry::renew(std::string name) {
    remove();
    Name = std::move(name);
}

int TemporaryEntry::make(const std::function<int()>& call) {
    const EntriesLock lock;
    theEntries.push_back(this);
    const int result = call();
    There = result >= 0;
    if (!There) {
        theEntries.pop_back();
    }
    return result;
}

int TemporaryEntry::take(const std::function<int()>& call) {
    const EntriesLock lock;
    const int result = call();
    if (result >= 0) {
        There = false;
        std::erase(theEntries, this);
    }
    return result;
}

void removeTemporaryEntries() noexcept {
    while (theLock.exchange(true)) {
        poll(nullptr, 0, 1); // ms
    }
    for (const TemporaryEntry* entry : theEntries) {
        unlinkat(entry->Folder, entry->name(), 0);
    }
}

} // namespace netrove
