// Database behaviour for the database tags' tests, on top of the fake host's database model:
// field look-ups answer 'MNtF' for a missing field and accept the parenthesised names of the
// documented placeholder form, and searches understand the criteria the tags build
// (Field = 'value' conditions joined by AND, then ORDER BY Field [DESC]). Searches also accept OR
// between conditions, so that a value whose quotes were not doubled visibly widens a search.
#ifndef KIV_TEST_FAKE_DATABASE_H
#define KIV_TEST_FAKE_DATABASE_H

#include "FakeHost.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace kivtest
{

constexpr uint32_t kFieldNotFound = KIV_FOURCC('M', 'N', 't', 'F');

// Type words of the fields the tests use (type byte in bits 16-23, length in 0-15).
constexpr uint32_t kBooleanField = 0x010000;
constexpr uint32_t kIntegerField = 0x020000;
constexpr uint32_t kUIntegerField = 0x030000;
constexpr uint32_t kFloatField = 0x040000;
constexpr uint32_t kNumberField = 0x050000;
constexpr uint32_t kTextField = 0x060040; // length 64
constexpr uint32_t kLongTextField = 0x070000;
constexpr uint32_t kTimestampField = 0x4B0000; // SQL TIMESTAMP: no value class
constexpr uint32_t kUniqueIDField = 0x030000 | kKivFieldFlag_AutoUnique;

// The conditions of criteria text; false when the text is not in the form the tags build.
struct ParsedCriteria
{
    std::vector<std::pair<std::string, std::string>> conditions;
    std::vector<bool> startsAlternative; // per condition: joined by OR to the ones before
    std::string orderBy;
    bool descending = false;
};

inline bool ParseCriteria(const std::string& text_i, ParsedCriteria& parsed_io)
{
    size_t at = 0;
    auto skipBlanks = [&]()
    {
        while (at < text_i.size() && text_i[at] == ' ')
            ++at;
    };
    auto word = [&]()
    {
        skipBlanks();
        size_t start = at;
        while (at < text_i.size() && text_i[at] != ' ' && text_i[at] != '=' && text_i[at] != '\'')
            ++at;
        return text_i.substr(start, at - start);
    };
    auto take = [&](const std::string& expected_i)
    {
        skipBlanks();
        if (text_i.compare(at, expected_i.size(), expected_i) != 0)
            return false;
        at += expected_i.size();
        return true;
    };
    skipBlanks();
    while (at < text_i.size())
    {
        std::string first = word();
        if (first == "ORDER")
        {
            if (word() != "BY")
                return false;
            parsed_io.orderBy = word();
            std::string rest = word();
            parsed_io.descending = rest == "DESC";
            skipBlanks();
            return !parsed_io.orderBy.empty() && (rest.empty() || rest == "DESC") && at == text_i.size();
        }
        bool alternative = false;
        if (!parsed_io.conditions.empty())
        {
            if (first != "AND" && first != "OR")
                return false;
            alternative = first == "OR";
            first = word();
        }
        if (first.empty() || !take("=") || !take("'"))
            return false;
        std::string value;
        for (;;)
        {
            if (at >= text_i.size())
                return false;
            if (text_i[at] == '\'')
            {
                if (at + 1 < text_i.size() && text_i[at + 1] == '\'')
                {
                    value += '\'';
                    at += 2;
                    continue;
                }
                ++at;
                break;
            }
            value += text_i[at++];
        }
        parsed_io.conditions.emplace_back(first, value);
        parsed_io.startsAlternative.push_back(alternative);
        skipBlanks();
    }
    return true;
}

// A search function for FakeDatabases::search. Malformed criteria select nothing, as a real
// database refuses them.
inline std::vector<size_t> SearchByCriteria(const FakeDatabase& database_i, const std::string& text_i)
{
    ParsedCriteria parsed;
    std::vector<size_t> found;
    if (!ParseCriteria(text_i, parsed))
        return found;
    for (size_t index = 0; index < database_i.records.size(); ++index)
    {
        // AND binds closer than OR: the record matches when every condition of one group does.
        bool matches = false;
        bool groupMatches = true;
        for (size_t at = 0; at < parsed.conditions.size(); ++at)
        {
            if (parsed.startsAlternative[at])
            {
                matches = matches || groupMatches;
                groupMatches = true;
            }
            const auto& condition = parsed.conditions[at];
            auto value = database_i.records[index].find(condition.first);
            groupMatches =
                groupMatches && value != database_i.records[index].end() && value->second == condition.second;
        }
        if (matches || groupMatches)
            found.push_back(index);
    }
    if (!parsed.orderBy.empty())
    {
        std::stable_sort(found.begin(), found.end(),
                         [&](size_t a, size_t b)
                         {
                             auto get = [&](size_t i)
                             {
                                 auto value = database_i.records[i].find(parsed.orderBy);
                                 return value == database_i.records[i].end() ? std::string() : value->second;
                             };
                             return parsed.descending ? get(b) < get(a) : get(a) < get(b);
                         });
    }
    return found;
}

// "(Name)" names the field Name, as the placeholder form "&kivDBField(Name);" hands it over.
inline std::string StripParentheses(const std::string& name_i)
{
    if (name_i.size() >= 2 && name_i.front() == '(' && name_i.back() == ')')
        return name_i.substr(1, name_i.size() - 2);
    return name_i;
}

// Deletes a record the way a database cursor expects: the search results lose the record and
// the cursor stays where it was, so that moving to the next record reaches the next result.
inline uint32_t DeleteKeepingResults(FakeDatabases& databases_io, FakeDBRequest& request_io)
{
    FakeDatabase* database = databases_io.ByHandle(request_io.call);
    if (database == nullptr)
        return databases_io.Handle(request_io);
    const long deleted = database->FindRecord(request_io.call.text);
    if (deleted < 0)
        return kFakeNotFound;
    const std::vector<size_t> results = database->Results();
    std::vector<size_t> kept;
    long position = database->position;
    for (size_t at = 0; at < results.size(); ++at)
    {
        if ((long)results[at] == deleted)
        {
            if ((long)at <= database->position)
                --position;
            continue;
        }
        kept.push_back((long)results[at] > deleted ? results[at] - 1 : results[at]);
    }
    database->records.erase(database->records.begin() + deleted);
    database->results = kept;
    database->searched = true;
    database->position = position;
    database->current = position >= 0 ? (long)kept[position] : -1;
    return 0;
}

// Installs the behaviour above on the host. The recorded calls keep the texts the module sent.
inline void UseTagDatabaseBehaviour(FakeHost& host_io)
{
    host_io.db.search = SearchByCriteria;
    FakeHost* host = &host_io;
    host_io.databaseHandler = [host](FakeDBRequest& request_io) -> uint32_t
    {
        const uint32_t selector = request_io.Selector();
        const bool fieldCall = selector == kKivDB_GetFieldInfoByName || selector == kKivDB_GetFieldValue ||
                               selector == kKivDB_SetFieldValue;
        if (selector == kKivDB_DeleteRecord)
            return DeleteKeepingResults(host->db, request_io);
        if (!fieldCall)
            return host->db.Handle(request_io);
        FakeCall call = request_io.call;
        call.text = StripParentheses(call.text);
        FakeDBRequest request{call,          request_io.a3, request_io.a4, request_io.a5,
                              request_io.a6, request_io.a7, request_io.a8};
        uint32_t result = host->db.Handle(request);
        if (selector == kKivDB_GetFieldInfoByName && result == kFakeNotFound)
            result = kFieldNotFound;
        return result;
    };
}

} // namespace kivtest

#endif
