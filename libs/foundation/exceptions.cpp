#include "foundation/exceptions.h"
#include "foundation/exception_factory.h"

namespace fn {

FN_IMPLEMENT_EXCEPTION(RuntimeException, Exception);
FN_IMPLEMENT_EXCEPTION(RangeException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(NullPointerException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(DataFormatException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(EndOfStreamException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(OperationTimedOutException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(IOException, RuntimeException);
FN_IMPLEMENT_EXCEPTION(FileException, IOException);

} // namespace fn
