// Reference-counted objects found by class name. An object answers QueryMap for its own
// class name and those of its bases, names itself for diagnostics, and is made only
// through its class's CreateClassRef factory, so it always lives in a shared pointer and
// can hand out strong references to itself.
#pragma once

#include <memory>
#include <string_view>

#include <tessel/platform/Export.h>

namespace Tessel {

template <class T>
using ClassRef = std::shared_ptr<T>;

class TESSEL_API IUnknownBase {
public:
    virtual ~IUnknownBase();
    // True when the object is of the class named CLASSNAME or derives from it.
    virtual bool QueryMap(std::string_view className) const = 0;
    virtual const char* GetUnknownTypeName() const = 0;
};

// The interface named by To::kClassName of OBJECT, or null when it has none.
template <class To, class From>
ClassRef<To> QueryClassRef(const ClassRef<From>& object) {
    if (!object || !object->QueryMap(To::kClassName))
        return nullptr;
    return std::dynamic_pointer_cast<To>(object);
}

}  // namespace Tessel
