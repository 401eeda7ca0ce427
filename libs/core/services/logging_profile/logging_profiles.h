#pragma once
#include "core/services/logging_profile/logging_profile_sink.h"

namespace core {

/// Sends the log messages of this process to the profiles in the application's folder `logging_profiles`, for good. Later
/// calls give the same sink and ignore `baseName`. Call it once the application's folders are known, on the main thread.
FN_EXPORT fn::AutoPtr<LoggingProfileSink> initLoggingProfiles(const fn::String& baseName);

/// Makes the console's profile take messages up to this priority, whatever its file says, as for a program's option for more
/// output; in this process, and in those that it starts from now on. To be called after `initLoggingProfiles()`, before other
/// threads log.
FN_EXPORT void setConsoleThreshold(int priority);

/// Lets verbose profiles take messages, or not, in every process of the application, also in those that start later. Other
/// processes are told by the message bus, if this process is connected to it. Thread-safe.
FN_EXPORT void setEnableVerboseLogging(bool enable);
FN_EXPORT bool isVerboseLoggingEnabled(); ///< In this process. After `initLoggingProfiles()`.

} // namespace core
