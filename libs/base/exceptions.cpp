#include "base/exceptions.h"
#include "base/exception_factory.h"

namespace fn {

static const bool _registeredException = ExceptionFactory::_registerException("Exception", typeid(Exception),
    [](const String& message, Exception::StackTrace choice) { return std::make_unique<Exception>(message, choice); });
FN_IMPLEMENT_EXCEPTION(RuntimeException, Exception);
FN_IMPLEMENT_EXCEPTION(RangeException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(NullPointerException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(DataFormatException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(EndOfStreamException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(OperationTimedOutException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(EndedException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(PromiseLostException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(NamedMutexAlreadyExistsException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(IOException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(FileException, IOException);

} // namespace fn
