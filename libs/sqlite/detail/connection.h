#pragma once
#include "base/string.h"
#include "sqlite/statement.h"
#include <sqlite3.h>
#include <string_view>

namespace sqlite::internal {

/// Owns SQLite's connection, for the database object and the statements and transactions that are made from it.
class Connection {
public:
    Connection(const fn::String& path, int flags);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    sqlite3* handle() const noexcept { return _handle; }
    const fn::String& path() const noexcept { return _path; }

    /// Compiles the first statement of `sql` and removes it there; null if `sql` holds only blanks and comments.
    StatementPointer prepare(std::string_view& sql);

    /// Runs all statements of the text, see `Database::execute()`.
    int execute(std::string_view sql);

    /// Whether there is another row; if not, the statement is reset.
    bool step(sqlite3_stmt* statement);

    /// Steps to the end and resets. Returns the number of rows that the statement itself inserted, changed or deleted.
    int run(sqlite3_stmt* statement);

    /// Throws the exception for the connection's latest error. To be called in the same Turn as the call that failed.
    [[noreturn]] void fail(std::string_view sql) const;

private:
    sqlite3* _handle = nullptr;
    fn::String _path;
};

/// Keeps other threads from the connection, so that its latest error and its row counts are those of this thread.
class Turn {
public:
    explicit Turn(const Connection& connection) : _mutex(sqlite3_db_mutex(connection.handle()))
    {
        sqlite3_mutex_enter(_mutex);
    }
    ~Turn() { sqlite3_mutex_leave(_mutex); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    // Null if the flags of the database say that only one thread uses it; SQLite then does nothing with it.
    sqlite3_mutex* _mutex;
};

} // namespace sqlite::internal
