#pragma once

#include "platform/files/SqliteStatement.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace tessel {

// A SQLite connection, opened on first use with WAL and synchronous=FULL, and
// the statements prepared on it. Not thread-safe: the owner serialises calls.
// A failure that leaves the file damaged closes the connection, so that the
// next use opens it afresh.
class SqliteDatabase {
public:
    // Receives every message; only a journal mode other than WAL is a warning.
    using Report = std::function<void(std::string_view message, bool isWarning)>;

    struct Options {
        std::string path;
        // Starts every message: "<name>: cannot open <path>: ...".
        std::string name;
        // Run on every open.
        const char* schema = nullptr;
        // The texts that statement() prepares, by index.
        std::vector<std::string> statements;
        // The owner checks the file on open and moves a damaged one aside to
        // "<path>.corrupt-<UTC timestamp>" for a new empty one; a table that
        // lives in someone else's file only reports that it cannot open it.
        bool ownsFile = false;
        Report report;
    };

    static constexpr int busyTimeoutMilliseconds = 5000;

    explicit SqliteDatabase(Options options);
    ~SqliteDatabase();
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    const std::string& path() const { return _options.path; }

    // Empty when it cannot be opened or prepared; a failed preparation is
    // reported as a failure of operation.
    SqliteStatement statement(size_t which, std::string_view operation);
    // Reports a failed call and closes the connection when the file is damaged.
    void failed(std::string_view operation, int code);
    // Moves the write-ahead log into the main file.
    bool checkpoint();

private:
    bool open();
    bool openAndCheck(std::string& reason, bool& damaged);
    int execute(const char* sql, std::string* firstValue = nullptr);
    const char* errorText(int code) const;
    void moveDamagedFileAside();
    void close();
    void error(std::string_view message) const { _options.report(message, false); }

    const Options _options;
    sqlite3* _database = nullptr;
    std::vector<sqlite3_stmt*> _statements;
};

} // namespace tessel
