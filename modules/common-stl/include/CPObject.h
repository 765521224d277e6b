// CPObject: the root of the framework's polymorphic classes.
#ifndef COMMON_STL_CPOBJECT_H
#define COMMON_STL_CPOBJECT_H

namespace ZOV_SPACE {

// Order of virtual operations, fixed by the framework's contract: destructor, toString.
class CPObject {
public:
    CPObject() = default;
    CPObject(const CPObject&) = default;
    CPObject& operator=(const CPObject&) = default;
    virtual ~CPObject();

    // The object's run-time type name as the platform's type information spells it. Static storage.
    virtual const char* toString() const;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_CPOBJECT_H
