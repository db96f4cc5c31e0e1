// The boundary of multipart/form-data.
#pragma once

#include <netrove/body.h>

#include <functional>
#include <string>
#include <vector>

namespace netrove {

// The first of the proposed boundaries that occurs in no head of a part and in no part that is in memory.
std::string freeBoundary(const std::vector<Part>& parts, const std::function<std::string()>& propose);

} // namespace netrove
