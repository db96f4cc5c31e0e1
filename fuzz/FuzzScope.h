// One host scope for a whole fuzz run: making one for each input would measure the host and not the parser.
#pragma once

#include "embedded/scope/Scope.h"
#include "fuzz/FuzzInput.h"

#include <memory>

inline void enterFuzzScope() {
    static const vantik::detail::ScopeEntry entry(std::make_shared<vantik::detail::Scope>());
}
