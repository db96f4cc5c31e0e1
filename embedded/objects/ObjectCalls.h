// What a program does with objects: make one, read and write its properties, call its methods. All of it runs in the
// current scope and inside a call frame of its own; results belong to the caller.
#pragma once

#include "embedded/arrays/Array.h"
#include "embedded/objects/HostObject.h"
#include "host/ClassSystem.h"

#include <boost/container/small_vector.hpp>

#include <span>
#include <string_view>

namespace vcos {

// On whose behalf a method is called.
class COSClient {
public:
    explicit constexpr COSClient(bool seesAll) : SeesAll(seesAll) {}
    const bool SeesAll; // also what is not public, and methods whose name ends in "Internal"
};

} // namespace vcos

namespace vantik::detail {

struct MethodEntry;

// The object in an object array with one element; an empty reference for everything else.
vcos::COSInterfacePtr scalarObject(const vxArray_tag* array);

// A new object with its constructor run. The class must be concrete and constructible.
vxArray_tag* createObject(std::shared_ptr<const ClassDefinition> definition, std::span<vxArray_tag* const> inputs);

// Raise for a property that the public client does not see, and for one without a setter.
vxArray_tag* getProperty(HostObject& object, std::string_view property);
void setProperty(HostObject& object, std::string_view property, vxArray_tag* value);

// True where the client may call the method.
bool isVisibleTo(const vcos::COSClient& client, const MethodEntry& method);

// The method of the object's class that this client may call; null where there is none.
const MethodEntry* findMethod(const HostObject& object, std::string_view method, const vcos::COSClient& client);
// The same, and a failure that names the nearest method where there is none.
const MethodEntry& requireMethod(const HostObject& object, std::string_view method, const vcos::COSClient& client);

// Most methods have so few, and then need no memory of the heap for them.
using ResultList = boost::container::small_vector<ArrayOwner, 3>;

// Runs a method. `arguments` begins with the object. The results are those that the method delivered, at most as many
// as wanted unless the method returns a first result unasked; one that it left out is null.
ResultList runMethod(HostObject& object, const MethodEntry& method, int resultsWanted,
                     std::span<vxArray_tag* const> arguments);

} // namespace vantik::detail
