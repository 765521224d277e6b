#include "Exception.h"

#include <string>
#include <system_error>
#include <typeinfo>

#include "Raise.h"

namespace ZOV_SPACE {

CPObject::~CPObject() = default;

const char* CPObject::toString() const { return typeid(*this).name(); }

Exception::~Exception() = default;
IOException::~IOException() = default;
ArchivingException::~ArchivingException() = default;
CompressionException::~CompressionException() = default;
OutOfMemoryException::~OutOfMemoryException() = default;
EncodingException::~EncodingException() = default;
BufferBaseOverSizeException::~BufferBaseOverSizeException() = default;
UnarchivePolicyException::~UnarchivePolicyException() = default;
UnarchiveRatioExceed::~UnarchiveRatioExceed() = default;

std::string& Exception::getMessage() { return _message; }

const char* Exception::toString() { return _message.c_str(); }

std::string Exception::getErrorLocation() { return _locationFile + ", line" + std::to_string(_locationLine); }

std::string systemErrorText(int errorNumber) { return std::generic_category().message(errorNumber); }

}  // namespace ZOV_SPACE
