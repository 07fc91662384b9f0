// The database service's result codes: the codes it shares with modules are the interface
// header's (kKivResult_...); the codes only the host answers are here, in one table with the
// explanation that 'MDEI' hands out for each. docs/database-service.md lists the same table as
// situation, code and what the page shows.
#pragma once

#include "KivModuleInterface.h"

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

// Codes only the host answers; no module tests for them.
namespace result
{
constexpr uint32_t kDatabaseNotFound = fourCharCode("MDNF");
constexpr uint32_t kDatabaseExists = fourCharCode("MDEx");
constexpr uint32_t kInvalidName = fourCharCode("MBdN");
constexpr uint32_t kLocked = fourCharCode("MLkd");
constexpr uint32_t kInvalidHandle = fourCharCode("MBdH");
constexpr uint32_t kInvalidArgument = fourCharCode("MPrm");
constexpr uint32_t kTypeMismatch = fourCharCode("MTyp");
constexpr uint32_t kValueTooLong = fourCharCode("MTLg"); // a data source refused a text as too long
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
// Server callback: the selector needs a page request and there is none ('MIni', 'MTrm').
constexpr uint32_t kNoRequest = fourCharCode("MNRq");
} // namespace result

// The explanation of a code, as 'MDEI' answers it; empty for a code the service never gives.
std::string_view describeResult(uint32_t code);

// "'MNtF'" for diagnostics and logs.
std::string formatResultCode(uint32_t code);

// Whether a code reports a failure: 'MBOF' and 'MEOF' mean "no record" and 'MBtS' asks for a
// larger buffer.
bool isFailure(uint32_t code);

} // namespace kiv::db
