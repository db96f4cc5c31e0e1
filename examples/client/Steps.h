// What the programs of this folder share: each has several parts, and its argument says which one to run.
#pragma once

#include <exception>
#include <initializer_list>
#include <iostream>
#include <string_view>
#include <utility>

using Step = std::pair<std::string_view, void (*)()>;

// Exit status: 0 done, 1 failed, 2 no such part.
inline int runStep(int argc, char** argv, std::initializer_list<Step> steps) {
    for (const auto& [name, run] : steps) {
        if (argc == 2 && name == argv[1]) {
            try {
                run();
                return 0;
            } catch (const std::exception& failure) {
                std::cerr << failure.what() << '\n';
                return 1;
            }
        }
    }
    std::cerr << "usage: " << argv[0] << " PART, which is one of:\n";
    for (const auto& [name, run] : steps) {
        std::cerr << "  " << name << '\n';
    }
    return 2;
}
