#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include <optional>

namespace media {

/// One scan that the user asked for, and how it is to be shown.
struct FN_EXPORT RunOptions {
    fn::String folder; ///< To be scanned: absolute, without links.
    fn::String dataFolder; ///< Where the catalogue lies.
    bool json = false; ///< One JSON object instead of text.
    bool killScanner = false; ///< Show that a scan survives its scanner.
    bool inspect = false; ///< Show the inspectors instead of progress and result, until the user has had enough.

    fn::Value toValue() const;
    static RunOptions fromValue(const fn::Value& value);
};

/// The main program as its modules see it.
class FN_EXPORT Application final : public ipc::CallableObjectReference {
public:
    explicit Application(ipc::ObjectReferenceInitializer& initializer);
    ~Application() override;

    fn::Promise<RunOptions> options(); ///< What to begin with.

    /// What another start of the program has handed over meanwhile, the earliest first. A program that stays answers when
    /// there is something; in others nothing means that it is time to finish, and that nothing is taken any more.
    fn::Promise<std::optional<RunOptions>> nextScan();

    /// Tells the user something, on a line of standard output, or of standard error where that is for the result alone.
    fn::Promise<void> announce(const fn::String& line);

    /// Ends all modules and the program: with this exit code, and with a message on standard error unless it is empty.
    fn::Promise<void> finish(int exitCode, const fn::String& message);
};

} // namespace media
