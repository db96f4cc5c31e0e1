// The modules that one scope has loaded.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

struct vxArray_tag;

namespace vantik::detail {

// The code of a module stays in the process until it ends, since objects, exceptions and thread-local data of it may
// outlive every scope.
class ModuleTable {
public:
    ModuleTable() = default;
    ModuleTable(const ModuleTable&) = delete;
    ModuleTable& operator=(const ModuleTable&) = delete;

    using Builtin = void (*)(int resultCount, vxArray_tag** results, int inputCount, vxArray_tag** inputs);

    // Loads a module by name or path and runs its VKInitialize_<name> in the current scope. A module that could not be
    // initialised is not in the table.
    void load(std::string_view nameOrPath);

    // Runs the VKTerminate_<name> of each module that has one, newest first, once.
    void terminate() noexcept;

    // A builtin by its plain symbol name or by its qualified C++ name; the newest module that has it counts. Raises
    // where none has.
    Builtin findBuiltin(std::string_view name);

private:
    struct Module {
        std::string Name;
        void* Library;
        const void* Base; // where the library was loaded
    };
    Builtin lookUp(std::string_view name) const;

    std::vector<Module> Modules;
    std::map<std::string, Builtin, std::less<>> Found; // since the last module was loaded
};

// The symbol name of `void ns::name(int, vxArray_tag**, int, vxArray_tag**)`.
std::string builtinSymbol(std::string_view qualifiedName);

// The file name of the module and its name: "libx.so" and "x" for "x", "/a/libx.so" and "x" for "/a/libx.so".
struct ModuleFile {
    std::string Name;
    std::string File;
};
ModuleFile moduleFile(std::string_view nameOrPath);

} // namespace vantik::detail
