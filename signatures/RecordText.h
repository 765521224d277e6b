// RecordText.h: record lines of pattern files, taken apart: for the lists that records go into, and for tools that
// check and explain them. Stateless.
#ifndef SIGNATURES_RECORDTEXT_H
#define SIGNATURES_RECORDTEXT_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "CheckSumPattern.h"
#include "Md5.h"
#include "RecordFault.h"

// What stands in a line of an ".hdb" file. The views are into the line.
struct Md5Text {
    std::string_view digits;
    std::uint32_t size;  // In bytes, saturated.
    std::string_view name;
};

// A fault's `part` lies in the line wherever the fault has a place there: behind its end for what is missing.

// Whether the line has the three parts; what is wrong with the digits shows only when they are decoded.
std::optional<RecordFault> splitMd5Record(std::string_view line, Md5Text& out);
std::optional<RecordFault> decodeMd5Digits(std::string_view digits, unsigned char (&digest)[Md5::kDigestSize]);

// A line of a ".chk" file: ten fields separated by ':'. The name is a view into the line.
std::optional<RecordFault> parseCheckSumRecord(std::string_view line, CheckSumFields& out, std::string_view& name);
// What keeps fields that could be read from being a record.
std::optional<RecordFault> faultOf(const CheckSumFields& fields);

#endif  // SIGNATURES_RECORDTEXT_H
