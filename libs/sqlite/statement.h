#pragma once
#include "base/byte_array.h"
#include "base/string.h"
#include "sqlite/column.h"
#include "sqlite/sqlite_exception.h"
#include <concepts>
#include <cstddef>
#include <memory>

struct sqlite3_stmt;

namespace sqlite {

class Database;
namespace internal {
class Connection;
struct StatementDeleter {
    FN_EXPORT void operator()(sqlite3_stmt* statement) const noexcept;
};
using StatementPointer = std::unique_ptr<sqlite3_stmt, StatementDeleter>;
} // namespace internal

/// One prepared statement. It holds its connection open and, between its first row and its end, a read lock on the
/// database: finish, `reset()` or destroy it before changing the schema. Errors: SQLiteException.
class FN_EXPORT Statement {
public:
    /// The text must hold exactly one statement.
    Statement(Database& database, const fn::String& sql);
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&& other) noexcept;
    ~Statement();

    /// Goes to the next row; false at the end, where the statement is reset: the next call runs it again.
    bool executeStep();

    /// Runs from the start to the end, drops all rows and resets. Returns the number of rows that it inserted, changed
    /// or deleted itself.
    int execute();

    /// Goes back to the start; parameters keep what is bound to them.
    void reset() noexcept;

    /// A column of the current row, counted from 0. No row, or no such column: `fn::RangeException`.
    Column getColumn(int index) const;

    /// Sets a parameter, counted from 1; a statement that is under way is reset before. Text and bytes are copied.
    template <std::integral T> void bindAt(int index, T value)
    {
        static_assert(std::signed_integral<T> || sizeof(T) < 8, "SQLite's integers are signed");
        bindInteger(index, value);
    }
    void bindAt(int index, const fn::String& text);
    void bindAt(int index, const fn::ByteArray& bytes);
    void bindAt(int index, std::nullptr_t); ///< NULL.

private:
    void bindInteger(int index, std::int64_t value);
    template <typename Call> void bind(Call call);

    std::shared_ptr<internal::Connection> _connection;
    internal::StatementPointer _statement; // Destroyed before the connection.
};

} // namespace sqlite
