#include "sqlite/column.h"
#include <sqlite3.h>

namespace sqlite {

bool Column::isNull() const noexcept { return sqlite3_column_type(_statement, _index) == SQLITE_NULL; }

int Column::getInt(int defaultValue) const noexcept
{
    const auto value = getInt64(defaultValue);
    return std::in_range<int>(value) ? static_cast<int>(value) : defaultValue;
}

std::int64_t Column::getInt64(std::int64_t defaultValue) const noexcept
{
    return isNull() ? defaultValue : sqlite3_column_int64(_statement, _index);
}

fn::String Column::getText() const
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(_statement, _index));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(_statement, _index));
    return text ? fn::String(std::string_view(text, size)) : fn::String();
}

fn::ByteArray Column::getBlob() const
{
    const auto* data = sqlite3_column_blob(_statement, _index);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(_statement, _index));
    return data ? fn::ByteArray(data, size) : fn::ByteArray();
}

} // namespace sqlite
