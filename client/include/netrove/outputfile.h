// A file that appears under its name only when it is complete.
#pragma once

#include <netrove/api.h>
#include <netrove/descriptor.h>
#include <netrove/temporaryentry.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace netrove {

class NETROVE_API OutputFile {
public:
    // Makes a file in the folder of `target`, without a name if the file system can, else under an unpredictable one.
    // Raises FileExists if the target exists and is not to be replaced, FileNotWritten if no file can be made or the
    // target is a folder, a device, a pipe or a socket.
    OutputFile(const std::string& target, bool replace);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Removes what killed programs have left of this target. What belongs to a running one is locked, and stays.
    void removeLeftovers() const;

    // The only name that an incomplete file can have. Empty for a file without a name, which gets one for the moment in
    // which it replaces another.
    const std::string& temporaryName() const { return TemporaryPath; }
    int descriptor() const { return File.Number; }
    std::uint64_t size() const { return Written; }

    // Content goes to the end of what has been written, or to the start again, in place of it. Both raise
    // FileNotWritten.
    void write(std::span<const std::byte> bytes);
    void restart();

    // Gives the file its name, once its content is on the disk. Raises FileNotWritten, or FileExists if somebody else
    // has made the target meanwhile.
    void keep();
    // The same in two steps, for many files at a time: a name that is on the disk before the content would be an empty
    // file after a power cut. `flushed`: somebody else has brought the content there.
    void settle(bool flushed = false);
    void name();
    // True for a file that has no name yet, and so leaves nothing if the program is killed.
    bool nameless() const { return !Named; }

private:
    OutputFile(const std::string& target, const std::string& real, bool replace);
    bool openWithoutName(unsigned mode);
    bool openNamed(unsigned mode);
    void renewTemporary();
    void settlePermissions() const;
    void checkClose() const;
    void checkTemporary() const;
    int link(const char* name) const;
    void rename();
    [[noreturn]] void failNotWritten(int errorNumber) const;

    std::string Target; // as given
    bool Replace;
    Descriptor Folder; // of the names that follow, even if it is renamed itself
    std::string Name;
    std::string FolderPath; // with its slash; empty for the current folder
    TemporaryEntry Temporary;
    std::string TemporaryPath;
    std::optional<unsigned> Permissions; // of the file that is replaced
    bool Named = false;                  // by its temporary name
    Descriptor File;
    std::uint64_t Written = 0; // bytes
};

// The same for a target that is received elsewhere.
NETROVE_API void removeLeftovers(const std::string& target);

// True for a name that OutputFile gives to an incomplete file.
NETROVE_API bool isTemporaryName(const std::string& path);

// True for a device, a pipe or a socket: content is written into such a target and never replaces it.
NETROVE_API bool isSpecialFile(const std::string& path);
NETROVE_API bool isFolder(const std::string& path);
NETROVE_API bool fileExists(const std::string& path); // a dangling link counts

} // namespace netrove
