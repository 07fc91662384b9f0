// Every result code the database service answers, in one place. The codes are four-character
// codes like the rest of the module interface; describeResult() holds the explanation that
// 'MDEI' hands to the module for a code, and docs/database-service.md lists the same table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kiv::db
{

constexpr uint32_t fourCharCode(const char (&text)[5])
{
    return (uint32_t(uint8_t(text[0])) << 24) | (uint32_t(uint8_t(text[1])) << 16) |
           (uint32_t(uint8_t(text[2])) << 8) | uint32_t(uint8_t(text[3]));
}

namespace result
{
constexpr uint32_t kSuccess = 0;
// Shared with the module interface.
constexpr uint32_t kBufferTooSmall = fourCharCode("MBtS");
constexpr uint32_t kUnknownFunction = fourCharCode("MUnF");
constexpr uint32_t kUnknownError = fourCharCode("MUnk");
constexpr uint32_t kBeginningOfFile = fourCharCode("MBOF");
constexpr uint32_t kEndOfFile = fourCharCode("MEOF");
// Codes whose meaning the module relies on.
constexpr uint32_t kFieldNotFound = fourCharCode("MNtF");  // error text: the field's name
constexpr uint32_t kImproperFormat = fourCharCode("MIFt"); // error text: what is wrong and where
// The service's own codes.
constexpr uint32_t kDatabaseNotFound = fourCharCode("MDNF");
constexpr uint32_t kDatabaseExists = fourCharCode("MDEx");
constexpr uint32_t kFieldExists = fourCharCode("MFEx");
constexpr uint32_t kInvalidName = fourCharCode("MBdN");
constexpr uint32_t kLocked = fourCharCode("MLkd");
constexpr uint32_t kInvalidHandle = fourCharCode("MBdH");
constexpr uint32_t kInvalidArgument = fourCharCode("MPrm");
constexpr uint32_t kTypeMismatch = fourCharCode("MTyp");
constexpr uint32_t kValueTooLong = fourCharCode("MTLg");
constexpr uint32_t kDuplicateValue = fourCharCode("MDup");
constexpr uint32_t kNoCurrentRecord = fourCharCode("MNoR");
constexpr uint32_t kRecordNotFound = fourCharCode("MRNF");
constexpr uint32_t kProtectedField = fourCharCode("MPrt");
constexpr uint32_t kStorageError = fourCharCode("MIOE");
constexpr uint32_t kBusy = fourCharCode("MBsy");
constexpr uint32_t kFileError = fourCharCode("MFil");
constexpr uint32_t kImportFailed = fourCharCode("MImF");
constexpr uint32_t kODBCUnavailable = fourCharCode("MNoO"); // the data source cannot be reached
constexpr uint32_t kDataSourceError = fourCharCode("MSQL"); // error text: the driver's diagnostics
constexpr uint32_t kConnectionLost = fourCharCode("MCnL");
} // namespace result

// The explanation of a code, as 'MDEI' answers it; empty for a code the service never gives.
std::string_view describeResult(uint32_t code);

// "'MNtF'" for diagnostics and logs.
std::string formatResultCode(uint32_t code);

} // namespace kiv::db
