#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

struct sqlite3_stmt;

namespace tessel {

// One use of a statement that its SqliteDatabase prepared and keeps: at the end
// of the use it is reset and its bindings cleared. Empty when the statement
// could not be prepared. A failure that closes the database ends the use early.
class SqliteStatement {
public:
    // slot is the database's cache entry, which closing sets to null.
    explicit SqliteStatement(sqlite3_stmt** slot = nullptr)
        : _slot(slot)
    {
    }
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    explicit operator bool() const { return _slot && *_slot; }

    // An empty blob binds as empty, not as SQL NULL, which NOT NULL columns refuse.
    void bindBytes(int index, const void* bytes, size_t length);
    void bindBytes(int index, std::string_view bytes) { bindBytes(index, bytes.data(), bytes.size()); }
    void bindInt64(int index, int64_t value);
    // SQLite's result code.
    int step();
    int64_t columnInt64(int column) const;
    std::string_view columnBytes(int column) const;

private:
    sqlite3_stmt* statement() const { return _slot ? *_slot : nullptr; }

    sqlite3_stmt** _slot = nullptr;
};

} // namespace tessel
