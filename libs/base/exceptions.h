#pragma once
#include "base/exception.h"

namespace fn {

FN_DECLARE_EXCEPTION(RuntimeException, Exception);
FN_DECLARE_EXCEPTION(RangeException, RuntimeException); ///< A value is missing, out of range or of another kind.
FN_DECLARE_EXCEPTION(NullPointerException, RuntimeException);
FN_DECLARE_EXCEPTION(DataFormatException, RuntimeException); ///< Bytes or text that do not follow their format.
FN_DECLARE_EXCEPTION(EndOfStreamException, RuntimeException);
FN_DECLARE_EXCEPTION(OperationTimedOutException, RuntimeException);
FN_DECLARE_EXCEPTION(
    EndedException, RuntimeException); ///< The object that was asked has ended. Expected: promises do not log it.
FN_DECLARE_EXCEPTION(NamedMutexAlreadyExistsException, RuntimeException); ///< Somebody else holds a mutex of that name.
FN_DECLARE_EXCEPTION(
    IOException, RuntimeException); ///< The system refused an operation; carries errno or the uv errno.
FN_DECLARE_EXCEPTION(FileException, IOException); ///< The same for a file; carries its path.

} // namespace fn
