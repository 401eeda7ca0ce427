#pragma once
#include "core/ipc/object/callable_object_reference.h"
#include <optional>

namespace media {

/// One scan that the user has asked for, and how the console shows it.
struct RunOptions {
    fn::String folder; ///< The folder to scan: absolute, without links.
    fn::String dataFolder; ///< The folder of the catalogue.
    bool json = false; ///< Whether the result is one JSON object instead of text.
    bool killScanner = false; ///< Whether to kill the scanner, to show that a scan survives that.
    bool quiet = false; ///< Whether neither progress nor result is shown, since something else is.

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

/// A reference to the main program, for its modules.
class FN_EXPORT Application final : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;

    /// The first scan.
    fn::Promise<RunOptions> options()
    {
        return callMethod("options").then([](fn::Value&& options) { return RunOptions::fromValue(options); });
    }

    /// The next scan that another start of the program has handed over, the earliest first. A program that stays answers when there
    /// is one. Another program answers with none when it takes no more scans, and the console should finish.
    fn::Promise<std::optional<RunOptions>> nextScan()
    {
        return callMethod("nextScan").then([](fn::Value&& options) {
            return options.isNil() ? std::nullopt : std::optional(RunOptions::fromValue(options));
        });
    }

    /// Ends all modules and the program, with this exit code, and with a message on standard error unless it is empty.
    fn::Promise<void> finish(int exitCode, const fn::String& message)
    {
        const auto argument = fn::Value::map({ { "exitCode", exitCode }, { "message", message } });
        return callMethod("finish", argument).then([](fn::Value&&) {});
    }
};

} // namespace media
