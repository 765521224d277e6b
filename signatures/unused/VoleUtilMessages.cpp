#include <cstdarg>

#include "VoleUtil.h"
#include "util/Diag.h"

void VoleUtil::DbgMsg(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    diag::print(diag::Kind::debug, format, arguments);
    va_end(arguments);
}

void VoleUtil::InMsg(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    diag::print(diag::Kind::info, format, arguments);
    va_end(arguments);
}

void VoleUtil::ErrMsg(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    diag::print(diag::Kind::error, format, arguments);
    va_end(arguments);
}
