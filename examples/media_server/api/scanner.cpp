#include "api/scanner.h"

namespace media {

Scanner::Scanner(ipc::ObjectReferenceInitializer& initializer) : CallableObjectReference(initializer) { }
Scanner::~Scanner() = default;

fn::Promise<PathSample> Scanner::scan(const fn::String& folder, const ScanId& scan, const fn::AutoPtr<Library>& library,
    const fn::AutoPtr<ipc::ObjectInstance>& observer)
{
    const auto argument = fn::Value::map(
        { { "folder", folder }, { "scan", scan.toValue() }, { "library", library }, { "observer", observer } });
    return callMethod("scan", argument).then([](fn::Value&& unreadable) { return PathSample::fromValue(unreadable); });
}

} // namespace media
