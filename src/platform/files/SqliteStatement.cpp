#include "platform/files/SqliteStatement.h"

#include <sqlite3.h>

namespace tessel {

SqliteStatement::~SqliteStatement()
{
    if (auto used = statement()) {
        sqlite3_reset(used);
        sqlite3_clear_bindings(used);
    }
}

void SqliteStatement::bindBytes(int index, const void* bytes, size_t length)
{
    static const char empty = 0;
    sqlite3_bind_blob64(statement(), index, length ? bytes : &empty, length, SQLITE_STATIC);
}

void SqliteStatement::bindInt64(int index, int64_t value) { sqlite3_bind_int64(statement(), index, value); }

int SqliteStatement::step() { return sqlite3_step(statement()); }

int64_t SqliteStatement::columnInt64(int column) const { return sqlite3_column_int64(statement(), column); }

std::string_view SqliteStatement::columnBytes(int column) const
{
    auto bytes = static_cast<const char*>(sqlite3_column_blob(statement(), column));
    auto length = static_cast<size_t>(sqlite3_column_bytes(statement(), column));
    return length ? std::string_view(bytes, length) : std::string_view();
}

} // namespace tessel
