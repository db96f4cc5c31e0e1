#include "embedded/scope/ModuleTable.h"

#include "embedded/messages/HostFailure.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <utility>

namespace vantik::detail {

namespace {

using Entry = void (*)();

std::string loaderReason() {
    const char* reason = dlerror();
    return reason ? reason : "no reason given";
}

// The folder that this library, or the program that it is a part of, was loaded from.
std::filesystem::path ownFolder() {
    Dl_info place{};
    if (dladdr(reinterpret_cast<const void*>(&ownFolder), &place) == 0 || !place.dli_fname) {
        return {};
    }
    return std::filesystem::path(place.dli_fname).parent_path();
}

// What to pass to the loader: the first folder that has the file, or the bare file name.
std::string locate(const std::string& file) {
    if (file.find('/') != std::string::npos) {
        return file;
    }
    std::vector<std::filesystem::path> folders;
    if (const char* configured = std::getenv("VANTIK_MODULE_PATH"); configured && *configured) {
        folders.emplace_back(configured);
    }
    if (const std::filesystem::path own = ownFolder(); !own.empty()) {
        folders.push_back(own);
    }
    for (const std::filesystem::path& folder : folders) {
        std::error_code error;
        if (const std::filesystem::path candidate = folder / file; std::filesystem::is_regular_file(candidate, error)) {
            // A name without a slash would make the loader search elsewhere.
            return folder.is_absolute() ? candidate.string() : "./" + candidate.string();
        }
    }
    return file;
}

const void* baseOf(const void* symbol) {
    Dl_info place{};
    return dladdr(symbol, &place) != 0 ? place.dli_fbase : nullptr;
}

// "0" for the second candidate, and so on; the first one has no number.
std::string sequenceId(std::size_t index) {
    if (index == 0) {
        return {};
    }
    std::string digits;
    for (std::size_t rest = index - 1;; rest /= 36) {
        digits.insert(digits.begin(), "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"[rest % 36]);
        if (rest < 36) {
            return digits;
        }
    }
}

} // namespace

ModuleFile moduleFile(std::string_view nameOrPath) {
    if (nameOrPath.find('/') == std::string_view::npos) {
        return {std::string(nameOrPath), "lib" + std::string(nameOrPath) + ".so"};
    }
    std::string_view name = nameOrPath.substr(nameOrPath.rfind('/') + 1);
    if (name.starts_with("lib")) {
        name.remove_prefix(3);
    }
    return {std::string(name.substr(0, name.find('.'))), std::string(nameOrPath)};
}

std::string builtinSymbol(std::string_view qualifiedName) {
    std::string parts;
    std::size_t count = 0;
    for (std::size_t start = 0; start != std::string_view::npos;) {
        const std::size_t end = qualifiedName.find("::", start);
        const std::string_view part = qualifiedName.substr(start, end == std::string_view::npos ? end : end - start);
        parts += std::to_string(part.size());
        parts += part;
        ++count;
        start = end == std::string_view::npos ? end : end + 2;
    }
    const std::string name = count > 1 ? "N" + parts + "E" : parts;
    // The second parameter of the same type refers back to the first: each namespace, the struct and the pointer to it
    // are counted before the pointer to that pointer.
    return "_Z" + name + "iPP11vxArray_tagiS" + sequenceId(count - 1 + 2) + "_";
}

void ModuleTable::load(std::string_view nameOrPath) {
    const ModuleFile module = moduleFile(nameOrPath);
    const auto fail = [&](std::string reason) {
        raiseHostFailure("VANTIK:host", "ModuleNotLoaded", {std::string(nameOrPath), std::move(reason)});
    };
    if (module.Name.empty()) {
        fail("the name is empty");
    }
    void* library = dlopen(locate(module.File).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        fail(loaderReason());
    }
    void* entry = dlsym(library, ("VKInitialize_" + module.Name).c_str());
    if (!entry) {
        fail(loaderReason());
    }
    reinterpret_cast<Entry>(entry)();
    for (const Module& known : Modules) {
        if (known.Library == library) {
            return; // initialised once more, terminated once
        }
    }
    Modules.push_back({module.Name, library, baseOf(entry)});
    Found.clear(); // the newest module counts
}

void ModuleTable::terminate() noexcept {
    Found.clear();
    while (!Modules.empty()) {
        const Module last = std::move(Modules.back());
        Modules.pop_back();
        if (void* entry = dlsym(last.Library, ("VKTerminate_" + last.Name).c_str())) {
            try {
                reinterpret_cast<Entry>(entry)();
            } catch (...) {
                // The scope ends in any case, and nobody is left to be told.
            }
        }
    }
}

ModuleTable::Builtin ModuleTable::findBuiltin(std::string_view name) {
    auto known = Found.find(name);
    if (known == Found.end()) {
        known = Found.emplace(name, lookUp(name)).first;
    }
    return known->second;
}

ModuleTable::Builtin ModuleTable::lookUp(std::string_view name) const {
    const std::string symbols[] = {std::string(name), builtinSymbol(name)};
    for (auto module = Modules.rbegin(); module != Modules.rend(); ++module) {
        for (const std::string& symbol : symbols) {
            void* found = dlsym(module->Library, symbol.c_str());
            // The loader also looks into what the module is linked with, where a function of the same name may have
            // quite another signature.
            if (found && baseOf(found) == module->Base) {
                return reinterpret_cast<Builtin>(found);
            }
        }
    }
    raiseHostFailure("VANTIK:host", "UnknownBuiltin", {std::string(name)});
}

} // namespace vantik::detail
