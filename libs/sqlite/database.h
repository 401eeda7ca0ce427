#pragma once
#include "base/string.h"
#include "sqlite/sqlite_exception.h"
#include <memory>

namespace sqlite {

namespace internal {
class Connection;
}

/// A connection to a database file. Statements and transactions share it: it is closed when the last of them has gone.
/// Several threads may use it, and then take turns; a transaction includes the statements of all threads. A statement waits
/// 5 seconds for a lock that another connection holds (`pragma busy_timeout`).
class FN_EXPORT Database {
public:
    /// `flags` are the flags of sqlite3_open_v2. Only the first statement reads the file, and fails if the file is no database.
    /// Errors here and below: SQLiteException.
    Database(const fn::String& path, int flags);
    explicit Database(const fn::String& path); ///< To read and to write; the file is made if there is none.
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const fn::String& path() const noexcept; ///< As it was opened with.

    /// Runs all statements of the text to their ends and drops their rows; stops at the first that fails. Returns the
    /// number of rows that they inserted, changed or deleted, without those that triggers and foreign keys touched.
    int execute(const fn::String& sql);

    bool isInTransaction() const noexcept; ///< A transaction that any user of the connection has begun.

private:
    friend class Statement;
    friend class Transaction;
    const std::shared_ptr<internal::Connection> _connection;
};

} // namespace sqlite
