// What a method declared of its inputs and outputs, as the class system reads it back.
#pragma once

#include "host/ClassSystem.h"

#include <vector>

namespace vantik::detail {

class MethodSignature final : public vcos::COSMethodSignature {
public:
    // `createMethodSignature` makes every signature, so each of them is of this class.
    static const MethodSignature& of(const vcos::COSMethodSignature& signature) {
        return static_cast<const MethodSignature&>(signature);
    }

    void addInputType(vcos::InternedName typeWord) override { Inputs.push_back(typeWord); }
    void addOutputType(vcos::InternedName typeWord) override { Outputs.push_back(typeWord); }
    void setOptionalInputCount(int count) override { OptionalInputs = count; }

    std::vector<vcos::InternedName> Inputs;
    std::vector<vcos::InternedName> Outputs;
    int OptionalInputs = 0;
};

} // namespace vantik::detail
