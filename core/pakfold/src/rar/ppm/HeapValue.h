// HeapValue: a number in the heap of a PPM model, where nothing is aligned.
#ifndef PAKFOLD_RAR_PPM_HEAPVALUE_H
#define PAKFOLD_RAR_PPM_HEAPVALUE_H

#include <cstring>

namespace ZOV_SPACE {

template <class T>
class HeapValue {
public:
    operator T() const {
        T value;
        std::memcpy(&value, _bytes, sizeof value);
        return value;
    }
    HeapValue& operator=(T value) {
        std::memcpy(_bytes, &value, sizeof value);
        return *this;
    }

private:
    unsigned char _bytes[sizeof(T)];
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_RAR_PPM_HEAPVALUE_H
