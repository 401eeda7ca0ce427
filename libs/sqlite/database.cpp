#include "sqlite/database.h"
#include "sqlite/detail/connection.h"
#include <algorithm>
#include <climits>

namespace sqlite {
Database::Database(const fn::String& path, int flags) : _connection(std::make_shared<internal::Connection>(path, flags))
{
}

Database::~Database() = default;

const fn::String& Database::path() const noexcept { return _connection->path(); }

int Database::execute(const fn::String& sql) { return _connection->execute(sql); }

void Database::setBusyTimeout(fn::Duration timeout)
{
    const auto milliseconds = std::clamp<std::int64_t>(timeout.totalMilliseconds(1), 0, INT_MAX);
    sqlite3_busy_timeout(_connection->handle(), static_cast<int>(milliseconds));
}

bool Database::isInTransaction() const noexcept { return !sqlite3_get_autocommit(_connection->handle()); }

std::int64_t Database::lastInsertRowId() const { return sqlite3_last_insert_rowid(_connection->handle()); }

} // namespace sqlite
