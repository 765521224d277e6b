// RecordWriter.h: lines of pattern files, without their line feeds: the inverse of signatures/RecordText.h. Stateless.
#ifndef VOLE_WORKSHOP_RECORD_WRITER_H
#define VOLE_WORKSHOP_RECORD_WRITER_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "CheckSumPattern.h"
#include "Md5.h"
#include "RecordFiles.h"

// Records of that many bytes are one line; longer ones would come as pieces.
constexpr std::size_t kMaxRecordLine = 1022;

std::string md5RecordLine(std::span<const unsigned char, Md5::kDigestSize> digest, std::uint32_t size,
                          std::string_view name);
// REQUIRES: !faultOf(fields).
std::string checkSumRecordLine(const CheckSumFields& fields, std::string_view name);
// Either; the same text for what is the same record to the loader, however it was written.
std::string recordLine(const Record& record);

// A check string or check-sum as such a line has it: least significant byte first.
std::string wordDigits(std::uint32_t word);

#endif  // VOLE_WORKSHOP_RECORD_WRITER_H
