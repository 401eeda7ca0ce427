#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include <optional>

namespace media {

/// One scan that the user asked for, and how it is to be shown.
struct RunOptions {
    fn::String folder; ///< To be scanned: absolute, without links.
    fn::String dataFolder; ///< Where the catalogue lies.
    bool json = false; ///< One JSON object instead of text.
    bool killScanner = false; ///< Show that a scan survives its scanner.
    bool quiet = false; ///< Neither progress nor result: something else is shown.

    fn::Value toValue() const
    {
        return fn::Value::map({ { "folder", folder }, { "dataFolder", dataFolder }, { "json", json },
            { "killScanner", killScanner }, { "quiet", quiet } });
    }
    static RunOptions fromValue(const fn::Value& value)
    {
        return { value.at("folder").string(), value.at("dataFolder").string(), value.at("json").toBool(),
            value.at("killScanner").toBool(), value.at("quiet").toBool() };
    }
};

/// The main program as its modules see it.
class FN_EXPORT Application final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// What to begin with.
    fn::Promise<RunOptions> options()
    {
        return callMethod("options").then([](fn::Value&& options) { return RunOptions::fromValue(options); });
    }

    /// What another start of the program has handed over meanwhile, the earliest first. A program that stays answers when
    /// there is something; in others nothing means that it is time to finish, and that nothing is taken any more.
    fn::Promise<std::optional<RunOptions>> nextScan()
    {
        return callMethod("nextScan").then([](fn::Value&& options) {
            return options.isNil() ? std::nullopt : std::optional(RunOptions::fromValue(options));
        });
    }

    /// Ends all modules and the program: with this exit code, and with a message on standard error unless it is empty.
    fn::Promise<void> finish(int exitCode, const fn::String& message)
    {
        const auto argument = fn::Value::map({ { "exitCode", exitCode }, { "message", message } });
        return callMethod("finish", argument).then([](fn::Value&&) {});
    }
};

} // namespace media
