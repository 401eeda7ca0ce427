#include "sqlite/detail/connection.h"
#include "sqlite/sqlite_exception.h"
#include <algorithm>
#include <climits>

namespace sqlite::internal {
namespace {

constexpr int busyTimeoutMilliseconds = 5000;
constexpr std::size_t mostBytesShown = 256; // Of a statement in error details.

[[noreturn]] void throwError(int code, const char* message, const fn::String& path, std::string_view sql)
{
    auto exception = fn::with(SQLiteException(message), fn::ErrorCodeInfo { code }, fn::PathInfo { path });
    if (!sql.empty()) exception.attach(fn::DetailInfo { "Statement: " + fn::String(sql.substr(0, mostBytesShown)) });
    throw exception;
}

} // namespace

Connection::Connection(const fn::String& path, int flags) : _path(path)
{
    if (path.contains(std::string_view("\0", 1))) throwError(SQLITE_CANTOPEN, "The path holds a NUL byte", path, {});
    const int result = sqlite3_open_v2(path.c_str(), &_handle, flags, nullptr);
    if (result != SQLITE_OK) {
        const fn::String message = _handle ? sqlite3_errmsg(_handle) : sqlite3_errstr(result);
        const int code = _handle ? sqlite3_extended_errcode(_handle) : result;
        sqlite3_close(_handle); // A failed opening leaves a handle as well.
        throwError(code, message.c_str(), path, {});
    }
    sqlite3_busy_timeout(_handle, busyTimeoutMilliseconds);
}

Connection::~Connection() { sqlite3_close(_handle); }

StatementPointer Connection::prepare(std::string_view& sql)
{
    const Turn turn(*this);
    // SQLite would stop at the NUL and leave out the rest of the text.
    if (sql.contains('\0')) throwError(SQLITE_ERROR, "The statement holds a NUL byte", _path, sql);
    if (sql.size() > INT_MAX) throwError(SQLITE_TOOBIG, sqlite3_errstr(SQLITE_TOOBIG), _path, sql);

    sqlite3_stmt* statement = nullptr;
    const char* rest = nullptr;
    if (sqlite3_prepare_v2(_handle, sql.data(), static_cast<int>(sql.size()), &statement, &rest) != SQLITE_OK)
        fail(sql);
    sql.remove_prefix(static_cast<std::size_t>(rest - sql.data()));
    return StatementPointer(statement);
}

int Connection::execute(std::string_view sql)
{
    const Turn turn(*this);
    int changed = 0;
    while (const auto statement = prepare(sql)) {
        const int rows = run(statement.get());
        changed = changed > INT_MAX - rows ? INT_MAX : changed + rows;
    }
    return changed;
}

bool Connection::step(sqlite3_stmt* statement)
{
    const Turn turn(*this);
    switch (sqlite3_step(statement)) {
    case SQLITE_ROW: return true;
    case SQLITE_DONE: sqlite3_reset(statement); return false;
    default: break;
    }
    sqlite3_reset(statement); // Frees the statement's locks, and repeats the error, which so remains the latest one.
    fail(sqlite3_sql(statement));
}

int Connection::run(sqlite3_stmt* statement)
{
    const Turn turn(*this);
    const auto before = sqlite3_total_changes64(_handle);
    while (step(statement)) { }
    // A statement that changes nothing leaves the count of the one before it.
    if (sqlite3_total_changes64(_handle) == before) return 0;
    return static_cast<int>(std::min<sqlite3_int64>(sqlite3_changes64(_handle), INT_MAX));
}

void Connection::fail(std::string_view sql) const
{
    throwError(sqlite3_extended_errcode(_handle), sqlite3_errmsg(_handle), _path, sql);
}

} // namespace sqlite::internal
