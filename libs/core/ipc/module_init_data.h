#pragma once
#include "base/string.h"

namespace ipc {

/// What a module was launched with.
class FN_EXPORT ModuleInitData {
public:
    ModuleInitData(
        fn::String pipePath, fn::String displayName, fn::String workerTag, fn::String userData, bool separateProcess)
        : _pipePath(std::move(pipePath)),
          _displayName(std::move(displayName)),
          _workerTag(std::move(workerTag)),
          _userData(std::move(userData)),
          _separateProcess(separateProcess)
    {
    }

    const fn::String& pipePath() const { return _pipePath; } ///< The dispatcher's pipe.
    const fn::String& displayName() const { return _displayName; } ///< For people.
    const fn::String& workerTag() const { return _workerTag; } ///< Names this launch.
    const fn::String& userData() const { return _userData; } ///< For the module alone.
    bool separateProcess() const { return _separateProcess; } ///< Whether the module has a process of its own.

private:
    fn::String _pipePath;
    fn::String _displayName;
    fn::String _workerTag;
    fn::String _userData;
    bool _separateProcess;
};

} // namespace ipc
