// A module that the tests load. It registers nothing and counts what the host does with it.
#include "host/ArrayApi.h"
#include "host/ClassSystem.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

static int initialized = 0;
static int terminated = 0;

extern "C" {

VANTIK_HOST_API void VKInitialize_vantik_test_module() {
    if (std::getenv("VANTIK_TEST_MODULE_FAILS")) {
        throw std::runtime_error("the module does not like this");
    }
    // Names belong to a scope: there has to be one.
    vcos::internal::makeInterned("VKInitialize_vantik_test_module");
    ++initialized;
}

VANTIK_HOST_API void VKTerminate_vantik_test_module() {
    vcos::internal::makeInterned("VKTerminate_vantik_test_module");
    ++terminated;
}

// "initialized/terminated"
VANTIK_HOST_API void vantikTestPlainBuiltin(int, vxArray_tag** results, int, vxArray_tag**) {
    const std::string counts = std::to_string(initialized) + "/" + std::to_string(terminated);
    results[0] = matrix::detail::noninlined::vx_array_api::vxCreateString(counts.c_str());
}

} // extern "C"

namespace test_base {

// The number of results wanted, and the text of each input.
VANTIK_HOST_API void echoBuiltin(int resultCount, vxArray_tag** results, int inputCount, vxArray_tag** inputs) {
    matrix::detail::noninlined::vx_array_api::vxCreateDoubleScalar(1); // left over on purpose: the host releases it
    std::string text = std::to_string(resultCount);
    for (int index = 0; index < inputCount; ++index) {
        text += " " + matrix::get_string(inputs[index]);
    }
    results[0] = matrix::create(text.data(), text.size()).release();
}

} // namespace test_base

namespace test_base::inner {

VANTIK_HOST_API void silentBuiltin(int, vxArray_tag**, int, vxArray_tag**) {}

} // namespace test_base::inner
