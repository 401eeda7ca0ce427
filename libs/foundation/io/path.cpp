#include "foundation/io/path.h"

namespace fn {

Path Path::parsePath(const String& path)
{
    const auto slash = path.view().rfind('/');
    if (slash == std::string_view::npos) return { {}, path };
    return { path.substring(0, slash == 0 ? 1 : slash), path.substring(slash + 1) };
}

} // namespace fn
