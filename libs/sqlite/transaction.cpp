#include "sqlite/transaction.h"
#include "sqlite/database.h"
#include "sqlite/detail/connection.h"

namespace sqlite {

Transaction::Transaction(Database& database) : _connection(database._connection)
{
    _connection->execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    // Some errors have rolled the transaction back already. SQLite is called directly, since a destructor must not throw.
    if (!_open || sqlite3_get_autocommit(_connection->handle())) return;
    sqlite3_exec(_connection->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit()
{
    _connection->execute("COMMIT");
    _open = false;
}

} // namespace sqlite
