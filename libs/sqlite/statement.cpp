#include "sqlite/statement.h"
#include "base/exceptions.h"
#include "sqlite/database.h"
#include "sqlite/detail/connection.h"
#include "sqlite/sqlite_exception.h"
#include <utility>

namespace sqlite {

void internal::StatementDeleter::operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }

Statement::Statement(Database& database, const fn::String& sql) : _connection(database._connection)
{
    auto rest = sql.view();
    _statement = _connection->prepare(rest);
    if (_statement && !_connection->prepare(rest)) return;
    throw with(SQLiteException("The text must hold exactly one statement"), fn::ErrorCodeInfo { SQLITE_MISUSE },
        fn::PathInfo { _connection->path() }, fn::DetailInfo { "Statement: " + sql });
}

Statement::Statement(Statement&& other) noexcept = default;

Statement& Statement::operator=(Statement&& other) noexcept
{
    // An assignment of each member would free the old connection before its statement.
    std::swap(_connection, other._connection);
    std::swap(_statement, other._statement);
    return *this;
}

Statement::~Statement() = default;

bool Statement::executeStep() { return _connection->step(_statement.get()); }

int Statement::execute()
{
    reset();
    return _connection->run(_statement.get());
}

void Statement::reset() noexcept { sqlite3_reset(_statement.get()); }

Column Statement::getColumn(int index) const
{
    if (index >= 0 && index < sqlite3_data_count(_statement.get())) return Column(_statement.get(), index);
    throw with(fn::RangeException("There is no such column, or no current row"),
        fn::DetailInfo { "Column: " + fn::String::number(index) });
}

template <typename Call> void Statement::bind(Call call)
{
    const internal::Turn turn(*_connection);
    if (sqlite3_stmt_busy(_statement.get())) reset();
    if (call(_statement.get()) != SQLITE_OK) _connection->fail(sqlite3_sql(_statement.get()));
}

void Statement::bindAt(int index, const fn::String& text)
{
    bind([&](auto* statement) {
        return sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    });
}

void Statement::bindAt(int index, const fn::ByteArray& bytes)
{
    bind([&](auto* statement) {
        return sqlite3_bind_blob64(statement, index, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
    });
}

void Statement::bindAt(int index, std::nullptr_t)
{
    bind([&](auto* statement) { return sqlite3_bind_null(statement, index); });
}

void Statement::bindInteger(int index, std::int64_t value)
{
    bind([&](auto* statement) { return sqlite3_bind_int64(statement, index, value); });
}

} // namespace sqlite
