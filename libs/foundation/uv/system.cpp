#include "foundation/uv/system.h"
#include <utility>

namespace fn::uv {

thread_local constinit System* System::_current = nullptr;

System::~System() = default;
System::Socket::~Socket() = default;

System* System::exchangeCurrent(System* system) noexcept { return std::exchange(_current, system); }

} // namespace fn::uv
