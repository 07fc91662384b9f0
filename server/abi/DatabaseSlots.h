// The database callback's adapter: decodes the argument slots of each selector, calls the typed
// database service, and encodes the answer by the rules of Slots.h. Slots: a3 the address of a
// handle (or index, or error code), a4/a5 a text or output buffer and its length + 1 or
// capacity, a6/a7 a value buffer or second text and its size, a8 the address of a kind, type
// word, open mode, index or count.
#pragma once

#include "DatabaseService.h"

#include <cstdint>

namespace kiv::abi
{

class DatabaseSlots
{
public:
    explicit DatabaseSlots(db::DatabaseService& service) : myService(service) {}

    // Whether the module's opens of names that do not exist create them: the dispatcher sets
    // this for each tag.
    void setOpenIntent(db::OpenIntent intent) { myIntent = intent; }

    // One call of the database callback: selector and the six argument slots a3..a8. Nothing
    // escapes into the module: every failure becomes a result code.
    uint32_t call(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);

private:
    uint32_t dispatch(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);
    uint32_t onDatabase(uint32_t selector, db::Database& database, void* a4, void* a5, void* a6, void* a7,
                        void* a8);
    uint32_t initialize(void* a4, void* a5);
    uint32_t open(void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);
    uint32_t fieldType(uint32_t selector, void* a3, void* a4, void* a5, void* a8);
    uint32_t getValue(db::Database& database, void* a4, void* a5, void* a6, void* a7, void* a8);
    uint32_t invalid(const char* what);

    db::DatabaseService& myService;
    db::OpenIntent myIntent = db::OpenIntent::MustExist;
};

} // namespace kiv::abi
