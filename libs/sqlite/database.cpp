#include "sqlite/database.h"
#include "sqlite/detail/connection.h"

namespace sqlite {
Database::Database(const fn::String& path, int flags) : _connection(std::make_shared<internal::Connection>(path, flags))
{
}

Database::Database(const fn::String& path) : Database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) { }

Database::~Database() = default;

const fn::String& Database::path() const noexcept { return _connection->path(); }

int Database::execute(const fn::String& sql) { return _connection->execute(sql); }

bool Database::isInTransaction() const noexcept { return !sqlite3_get_autocommit(_connection->handle()); }

} // namespace sqlite
