#pragma once
#include "base/exceptions.h"

namespace sqlite {

/// SQLite refused something: `displayText()` is its message. Carries its extended result code (the low byte is the
/// primary one), the path of the database and, where there was one, the beginning of the statement.
FN_DECLARE_EXCEPTION(SQLiteException, ::fn::RuntimeException);

} // namespace sqlite
