#include "core/services/process_lock.h"
#include "base/exceptions.h"
#include "foundation/system/environment.h"
#include "foundation/system/named_mutex.h"

namespace core {

ProcessLock::ProcessLock(const fn::String& name)
{
    const auto mutexName = name + "-" + fn::Environment::userName();
    try {
        _mutex = std::make_shared<fn::NamedMutex>(mutexName, true);
        _exclusive = true;
    } catch (const fn::NamedMutexAlreadyExistsException&) {
        _mutex = std::make_shared<fn::NamedMutex>(mutexName, false);
    }
}

ProcessLock::ProcessLock(const ProcessLock&) = default;
ProcessLock& ProcessLock::operator=(const ProcessLock&) = default;
ProcessLock::~ProcessLock() = default;

} // namespace core
