// The host's class system (vcos): packages, classes, properties, methods, and calls into host objects.
//
// The virtual operations of the information classes are in the order of their slots. A library overrides what it
// needs; every other operation answers as the class system does by default.
#pragma once

#include "host/HostApi.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct vxArray_tag;

namespace vcos {

class COSClass;
class COSClient;
class COSDataType;
class COSInterface;
class COSInterfacePtr;
class COSPackage;

using COSDataTypePtr = std::shared_ptr<const COSDataType>;

// Key made of a string: equal strings of one scope have equal pointers. Null is the empty string.
using InternedName = const std::string*;

namespace internal {
VANTIK_HOST_API InternedName makeInterned(std::string&& text);
}

// One 64-bit cell that carries a value across the boundary; the declared type word says what is in it.
struct COSValue {
    std::uint64_t Bits = 0;
};

enum class MemberAccess : int { Public = 0, Protected = 1, Private = 2 };

// Describes a package. Storage belongs to the class system; `operator new` returns null where there is no memory.
class VANTIK_HOST_API COSNamespaceInfo {
public:
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* block) noexcept;

    virtual ~COSNamespaceInfo();
    virtual std::string getName() const = 0; // short name
    virtual std::string getDescription() const;
    virtual std::string getDetailedDescription() const;
    virtual bool attemptToLoadInnerNamespace(InternedName name);
    virtual bool attemptToLoadSubPackage(InternedName name);
    virtual void throwErrorForDefinitionOfExistingName(InternedName name) const;
    virtual bool attemptToLoadClass(InternedName name);
    virtual bool attemptToLoadFunction(InternedName name);
    virtual bool attemptToLoadType(InternedName name);
    virtual void* getMethodSelector() const;
    virtual void unloadDynamicContent(); // called before the package goes
    virtual void initializePackage(COSPackage& package);
    virtual bool isDestructible() const;
    virtual bool isLocked() const;
    virtual bool canLoadDynamicContent() const;
};

// What a method takes and returns, in type words such as "uint8 vector", "logical scalar" or a class name followed by
// "scalar" or "vector". Only the host derives from it and reads it.
class VANTIK_HOST_API COSMethodSignature {
public:
    static COSMethodSignature* createMethodSignature(); // the caller owns it

    virtual ~COSMethodSignature();
    virtual void addInputType(InternedName typeWord) = 0;
    virtual void addOutputType(InternedName typeWord) = 0;
    virtual void setOptionalInputCount(int count) = 0; // how many inputs at the end may be left out
};

// Describes a method and runs it.
class VANTIK_HOST_API COSMethodInfo {
public:
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* block) noexcept;

    virtual ~COSMethodInfo();
    virtual std::string getName() const = 0;
    virtual std::string getDescription() const;
    virtual bool isLookupScope() const;
    virtual std::string getDetailedDescription() const;
    virtual MemberAccess getMemberAccess() const;
    virtual int getExtendedAccess() const;
    // Borrowed; null where inputs and outputs are not declared, and then they are passed as handles, unchecked.
    virtual const COSMethodSignature* getMethodSignature() const = 0;
    // Runs the method. `resultCount` results are wanted. The method may raise the count to deliver one unasked, or
    // lower it to what it delivered; `results` is all zero and has room for every declared output, and for one in any
    // case. A method's first input is the object. A constructor gets the array of the new object in `results[0]`.
    // Result arrays pass to the caller, inputs are borrowed.
    virtual void invoke(int& resultCount, COSValue* results, int inputCount, const COSValue* inputs) = 0;
    virtual bool isFirstArgDispatch() const;
    virtual bool isStatic() const;
    virtual bool isAbstract() const;
    virtual bool isSealed() const;
    virtual bool isVisible() const;
    virtual bool isDestructible() const;
    virtual bool isLocked() const;
    virtual bool isExplicit() const;
    virtual bool doesMethodOverrideAllSignatures() const;
};

// A method with a stored name and an owned signature.
class VANTIK_HOST_API COSMethodBase : public COSMethodInfo {
public:
    COSMethodBase(InternedName className, InternedName methodName, MemberAccess access, const char* description);
    ~COSMethodBase() override;
    std::string getName() const override;
    std::string getDescription() const override;
    MemberAccess getMemberAccess() const override;
    const COSMethodSignature* getMethodSignature() const override;

protected:
    InternedName className() const { return ClassName; }
    void setMethodSignature(COSMethodSignature* signature); // takes ownership

private:
    InternedName ClassName;
    InternedName MethodName;
    MemberAccess Access;
    std::string Description;
    std::unique_ptr<COSMethodSignature> Signature;
};

// Describes a property and reads and writes it. Made in a block from `calloc`, released with `utFree`.
class VANTIK_HOST_API COSPropInfo {
public:
    static void* operator new(std::size_t size, void* place) noexcept {
        (void)size;
        return place;
    }
    static void operator delete(void* block) noexcept;

    virtual ~COSPropInfo();
    virtual InternedName getName() const = 0;
    virtual std::string getDescription() const = 0;
    virtual COSDataTypePtr getDataType() const = 0;
    virtual MemberAccess getGetAccess() const = 0;
    virtual MemberAccess getSetAccess() const = 0;
    virtual std::uint32_t getAttributes() const = 0;
    virtual bool isWeakReference() const;
    virtual void getPropertyValue(COSInterface& object, COSValue& value) = 0;
    virtual void setPropertyValue(COSInterface& object, const COSValue& value) = 0;
    // Called once the host has finished with what `getPropertyValue` returned.
    virtual void releasePropertyValue(COSInterface& object, const COSValue& value) = 0;
    virtual bool canContainInterfaces() const;
    // False: the class system refuses to set the property and never calls `setPropertyValue`.
    virtual bool hasSetter() const;
};

class VANTIK_HOST_API COSPropT : public COSPropInfo {
public:
    COSPropT(InternedName className, InternedName propertyName, COSDataTypePtr type, MemberAccess getAccess,
             MemberAccess setAccess, std::uint32_t attributes, const char* description);
    ~COSPropT() override;
    InternedName getName() const override;
    std::string getDescription() const override;
    COSDataTypePtr getDataType() const override;
    MemberAccess getGetAccess() const override;
    MemberAccess getSetAccess() const override;
    std::uint32_t getAttributes() const override;

protected:
    InternedName className() const { return ClassName; }

private:
    InternedName ClassName;
    InternedName PropertyName;
    COSDataTypePtr Type;
    MemberAccess GetAccess;
    MemberAccess SetAccess;
    std::uint32_t Attributes;
    std::string Description;
};

// Describes a class, and makes and destroys the native instance behind each of its objects.
class VANTIK_HOST_API COSClassInfo {
public:
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* block) noexcept;

    virtual ~COSClassInfo();
    virtual std::string getName() const = 0; // short name
    virtual std::string getDescription() const;
    virtual std::string getDetailedDescription() const;
    virtual MemberAccess getAccess() const;
    virtual void defineClass(COSClass& definition) = 0; // adds properties and methods
    virtual void* createInstance() = 0;                 // null: no memory
    virtual void destroyInstance(void* instance) = 0;   // null is allowed
    virtual void* updateInstance(void* instance);
    virtual bool isConstructible() const; // objects may be made by calling the class
    virtual bool isHidden() const;
    virtual bool isCompatibleInexactProperties() const;
    virtual bool isFullNameDisplayed() const;
    virtual bool isPropertyNameReservedByThisClass(InternedName name) const;
    virtual bool canOtherClassContainThisClass(InternedName other) const;
    virtual bool canThisClassContainOtherClass(InternedName other) const;
    virtual bool isHandle() const; // copies of an object name the same instance
    virtual bool isHandleCompatible() const;
    virtual bool isEnumeration() const;
    virtual MemberAccess getConnectAccess() const;
    virtual int getConnectivity() const;
    virtual bool areChildrenSaved() const;
    virtual bool isAbstract() const;
    virtual bool useClassDefaultsOnLoad() const;
    virtual bool isTransient() const; // objects are never saved
    virtual bool isPropertyTruncationAllowed() const;
    virtual bool isConstructedOnLoad() const;
    virtual bool arePropertiesCaseInsensitive() const;
    virtual bool isInstanceLeaf() const;
    virtual bool isDestructible() const;
    virtual bool isLocked() const;
    virtual void instanceLoaded(void* instance);
    virtual bool customSave(void* instance);
    virtual bool customLoad(void* instance);
    virtual std::string getModule() const;
    virtual bool areClassFunctionsAllowed() const;
    virtual bool areExtensionMethodsAllowed() const;
    virtual bool usesRootRecords() const;
    virtual bool doEventsHaveSeparateNamespace() const;
    virtual bool doesInexactPropertyNameIssueWarning() const;
    virtual bool usesCustomChildrenList() const;
    virtual int getArrayNature() const;
    virtual std::vector<void*> getChildrenOfInstance(void* instance);
    virtual bool classIsAbstract() const;
    virtual bool allowInstanceUpdates() const;
    virtual bool isIDConsistent() const;
    virtual void copyData(void* from, void* to);
    virtual bool willAllocateData() const;
};

// A class being defined or in use.
class VANTIK_HOST_API COSClass {
public:
    static COSClass* getClass(InternedName fullName); // null where the scope has no such class

    virtual ~COSClass();
    virtual void load(bool fully) = 0; // afterwards the class is usable as a type
    virtual InternedName getFullName() const = 0;
    // Raises a message exception for a name that is not an identifier or an unknown type word.
    virtual COSDataTypePtr validatePropertyType(InternedName name, InternedName typeWord) = 0;
    virtual void addProperty(COSPropT* property) = 0;  // takes ownership; null: no memory, raises
    virtual void addMethod(COSMethodInfo* method) = 0; // takes ownership; null: no memory, raises
};

class VANTIK_HOST_API COSPackage {
public:
    static COSPackage* getNamespace(InternedName fullName);  // null where the scope has no such package
    static void addNamespace(COSNamespaceInfo* description); // a root package; takes ownership

    virtual ~COSPackage();
    virtual void addInnerNamespace(COSNamespaceInfo* description) = 0; // takes ownership
    // Adds a class, takes ownership of its description and calls `defineClass`. Should that raise, the class is gone
    // again, and what it would have replaced is back. A second description of the same name replaces the first for
    // objects made from then on. Null: no memory, raises.
    virtual void addClass(COSClassInfo* description, int access, int kind) = 0;
    virtual std::string getFullName() const = 0; // dotted
};

// One object.
class VANTIK_HOST_API COSInterface {
public:
    // Native instance that the class of that name made for this object; null where the object is not of that class.
    virtual void* getInstanceData(InternedName classKey) = 0;

protected:
    friend class COSInterfacePtr;
    virtual ~COSInterface();
    virtual void addReference() noexcept = 0;
    virtual void release() noexcept = 0;
};

// A counted reference to an object.
class VANTIK_HOST_API COSInterfacePtr {
public:
    COSInterfacePtr() noexcept;
    explicit COSInterfacePtr(COSInterface* object) noexcept;
    COSInterfacePtr(const COSInterfacePtr& other) noexcept;
    COSInterfacePtr(COSInterfacePtr&& other) noexcept;
    COSInterfacePtr& operator=(COSInterfacePtr other) noexcept;
    ~COSInterfacePtr();
    COSInterface* operator->() const noexcept { return Object; }
    COSInterface* get() const noexcept { return Object; }
    explicit operator bool() const noexcept { return Object != nullptr; }

private:
    COSInterface* Object;
};

// Native instance behind a value that holds a scalar object. Never null: a value without an object of that class
// raises a message exception.
VANTIK_HOST_API void* vcosGetScalarObjectValue(InternedName classKey, const COSValue& value);

} // namespace vcos

// True where every scope has a class system of its own, so that a module registers in each of them.
VANTIK_HOST_API bool omGetVcosUsingUSM();

// On whose behalf a method is called. Methods whose name ends in "Internal" exist for the system client only.
VANTIK_HOST_API vcos::COSClient* getSystemClient();
VANTIK_HOST_API vcos::COSClient* COSGetPublicClient();

// Calls a method of the object in `arguments[0]`, which must be of the class `className` or derive from it; the
// object's own class decides which method runs. Stores `resultCount` owned handles in `results`, null where the method
// returned fewer. Returns false, with nothing called, where there is no such object, class or method for this client.
// What the method raises passes through.
VANTIK_HOST_API bool omCallMethod(vcos::InternedName className, vcos::InternedName methodName, vcos::COSClient* client,
                                  int resultCount, vxArray_tag** results, int argumentCount, vxArray_tag** arguments,
                                  bool onlyStatic);

// One element of an object array; an empty reference where there is none.
VANTIK_HOST_API vcos::COSInterfacePtr omGetArrayElement(const vxArray_tag* array, std::size_t index);
