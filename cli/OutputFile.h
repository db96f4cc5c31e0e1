// A file that appears under its name only when it is complete.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace netrove::cli {

class OutputFile {
public:
    // Makes a temporary file with an unforeseeable name in the folder of `target`. Raises FileExists where the target
    // is there and is not to be replaced, FileNotWritten where none can be made, or the target is a folder, a device,
    // a pipe or a socket.
    OutputFile(const std::string& target, bool replace);
    ~OutputFile(); // removes the temporary file unless it was kept
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& temporaryName() const { return Temporary; }
    int descriptor() const { return Descriptor; }
    std::uint64_t size() const;

    // Gives the file its name, once its content is on the disk. Raises FileNotWritten, or FileExists where somebody
    // else made the target meanwhile.
    void keep();

private:
    void sync() const;
    void rename();

    std::string Target;
    std::string Temporary;
    bool Replace;
    int Descriptor = -1;
    std::optional<unsigned> Permissions; // of the file that is replaced
};

// True for a device, a pipe or a socket: content goes into such a target and never in its place.
bool isSpecialFile(const std::string& path);
bool isFolder(const std::string& path);
bool fileExists(const std::string& path); // a dangling link counts

} // namespace netrove::cli
