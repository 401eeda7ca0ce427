#pragma once
#include "base/exceptions.h"

namespace sqlite {

/// SQLite refused a call: `displayText()` is SQLite's message. Carries SQLite's extended result code (its low byte is the
/// primary code), the path of the database and the beginning of the statement, if there was one.
FN_DECLARE_EXCEPTION(SQLiteException, ::fn::RuntimeException);

} // namespace sqlite
