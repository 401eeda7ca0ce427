#include "sqlite/sqlite_exception.h"
#include "base/exception_factory.h"

namespace sqlite {

FN_IMPLEMENT_EXCEPTION(SQLiteException, ::fn::RuntimeException);

} // namespace sqlite
