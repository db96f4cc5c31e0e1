// Stands between the library and single operations of the host, the heap and the class's own parts in this executable,
// so that a test can play the host or let an allocation fail. Without an instance alive, and where no function is
// given, every call goes where it would.
#pragma once

#include "host/ClassSystem.h"
#include "host/Messages.h"

#include <functional>
#include <string>

namespace netrove {
class HTTPConnection;
}

// One at a time, on the thread of the test.
class HostCalls {
public:
    HostCalls();
    ~HostCalls();
    HostCalls(const HostCalls&) = delete;
    HostCalls& operator=(const HostCalls&) = delete;

    // Replacements.
    std::function<vcos::COSPackage*(vcos::InternedName fullName)> OnGetNamespace;
    std::function<void(vcos::COSNamespaceInfo* description)> OnAddNamespace;
    std::function<vcos::COSClass*(vcos::InternedName fullName)> OnGetClass;
    std::function<void(const foundation::core::except::IUserException& failure)> OnLegacyError;
    std::function<void(netrove::HTTPConnection* connection, const std::u16string& url)> OnSetUrl;

    // Which call from now on finds no memory, counted from 1; 0: none.
    int FailingPropertyBlock = 0; // calloc
    int FailingMethodInfo = 0;
    int FailingClassInfo = 0;
    int FailingInstance = 0;         // operator new that answers null
    bool OncePrimitiveFails = false; // pthread_once

    // What the host itself says, within a replacement too.
    static vcos::COSPackage* hostNamespace(vcos::InternedName fullName);
};
