#pragma once
#include "base/export.h"
#include "sqlite/sqlite_exception.h"
#include <memory>

namespace sqlite {

class Database;
namespace internal {
class Connection;
}

/// A transaction, which is rolled back if it is destroyed before it was committed. It takes the write lock at once, so that
/// no statement in it finds the database locked. Transactions do not nest. Errors: SQLiteException.
///
/// After some errors, such as a full disk, SQLite rolls back at once. Statements behind such an error are in no transaction, and
/// their changes stay although `commit()` fails: leave the scope with the first exception.
class FN_EXPORT Transaction {
public:
    /// Begins. `SQLiteException` where the database is locked or in a transaction already.
    explicit Transaction(Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    /// If it fails the transaction is still open and may be committed again.
    void commit();

private:
    const std::shared_ptr<internal::Connection> _connection;
    bool _open = true;
};

} // namespace sqlite
