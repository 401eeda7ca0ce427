#pragma once
#include "base/exception.h"

namespace fn {

FN_DECLARE_EXCEPTION(RuntimeException, Exception);
FN_DECLARE_EXCEPTION(RangeException, RuntimeException); ///< A value is missing, out of range or of another kind.
FN_DECLARE_EXCEPTION(NullPointerException, RuntimeException);
FN_DECLARE_EXCEPTION(DataFormatException, RuntimeException); ///< Bytes or text that do not follow their format.
FN_DECLARE_EXCEPTION(EndOfStreamException, RuntimeException);
FN_DECLARE_EXCEPTION(OperationTimedOutException, RuntimeException);
/// The object that was asked has ended. Such an end is expected: promises do not log it.
FN_DECLARE_EXCEPTION(EndedException, RuntimeException);
/// The promise that a coroutine awaits was forgotten by its maker, or was cancelled by somebody else.
FN_DECLARE_EXCEPTION(PromiseLostException, RuntimeException);
FN_DECLARE_EXCEPTION(NamedMutexAlreadyExistsException, RuntimeException); ///< Somebody else holds a mutex of that name.
/// The system refused an operation. The exception carries errno or the uv errno.
FN_DECLARE_EXCEPTION(IOException, RuntimeException);
FN_DECLARE_EXCEPTION(FileException, IOException); ///< An IOException for a file; carries the path.

} // namespace fn
