#pragma once
#include "base/byte_array.h"
#include "base/string.h"
#include <cstdint>

struct sqlite3_stmt;

namespace sqlite {

/// One value of a statement's current row. Valid until the statement goes on, is reset or is destroyed. Values of another type
/// are converted as SQLite does: text that is no number is 0.
class FN_EXPORT Column {
public:
    bool isNull() const noexcept; ///< Whether the value is NULL.
    int getInt(int defaultValue = -1) const noexcept; ///< The default for NULL, and if no int holds the value.
    std::int64_t getInt64(std::int64_t defaultValue = -1) const noexcept; ///< The default for NULL.
    fn::String getText() const; ///< NULL is "".
    fn::ByteArray getBlob() const; ///< NULL is no bytes.

private:
    friend class Statement;
    Column(sqlite3_stmt* statement, int index) noexcept : _statement(statement), _index(index) { }

    sqlite3_stmt* _statement;
    int _index;
};

} // namespace sqlite
