#pragma once
#include "core/ipc/object/callable_object_reference.h"

namespace media {

/// What the user asked for.
struct FN_EXPORT RunOptions {
    fn::String folder; ///< To be scanned: absolute, without links.
    fn::String dataFolder; ///< Where the catalogue lies.
    bool json = false; ///< One JSON object instead of text.
    bool killScanner = false; ///< Show that a scan survives its scanner.

    fn::Value toValue() const;
    static RunOptions fromValue(const fn::Value& value);
};

/// The main program as its modules see it.
class FN_EXPORT Application final : public ipc::CallableObjectReference {
public:
    explicit Application(ipc::ObjectReferenceInitializer& initializer);
    ~Application() override;

    fn::Promise<RunOptions> options();

    /// Ends all modules and the program: with this exit code, and with a message on standard error unless it is empty.
    fn::Promise<void> finish(int exitCode, const fn::String& message);
};

} // namespace media
