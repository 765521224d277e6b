// Exception: the one error type that the framework and the engine throw, by value, and catch by reference. The
// subclasses add nothing but their type, so that a handler can catch one family and still read the message.
// Raise.h has the only functions that should throw them.
#ifndef COMMON_STL_EXCEPTION_H
#define COMMON_STL_EXCEPTION_H

#include <string>

#include "CPObject.h"

namespace ZOV_SPACE {

// Order of virtual operations, fixed by the framework's contract: destructor, CPObject::toString() const, getMessage,
// toString, getErrorLocation; of fields: message, location file, location line.
class Exception : public CPObject {
public:
    Exception() = default;
    explicit Exception(const std::string& message) : _message(message) {}
    // Where it was raised: source unit (path without extension) and line.
    Exception(const std::string& message, const char* locationFile, int locationLine)
        : _message(message), _locationFile(locationFile), _locationLine(locationLine) {}
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    using CPObject::toString;
    virtual std::string& getMessage();
    virtual const char* toString();          // The message's text.
    virtual std::string getErrorLocation();  // "<file>, line<number>"; ", line0" when no location was given.

private:
    std::string _message;
    std::string _locationFile;
    int _locationLine = 0;
};

class IOException : public Exception {
public:
    using Exception::Exception;
    ~IOException() override;
};

class ArchivingException : public Exception {
public:
    using Exception::Exception;
    ~ArchivingException() override;
};

class CompressionException : public Exception {
public:
    using Exception::Exception;
    ~CompressionException() override;
};

class OutOfMemoryException : public Exception {
public:
    using Exception::Exception;
    ~OutOfMemoryException() override;
};

class EncodingException : public Exception {
public:
    using Exception::Exception;
    ~EncodingException() override;
};

class BufferBaseOverSizeException : public Exception {
public:
    using Exception::Exception;
    ~BufferBaseOverSizeException() override;
};

class UnarchivePolicyException : public Exception {
public:
    using Exception::Exception;
    ~UnarchivePolicyException() override;
};

class UnarchiveRatioExceed : public Exception {
public:
    using Exception::Exception;
    ~UnarchiveRatioExceed() override;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_EXCEPTION_H
