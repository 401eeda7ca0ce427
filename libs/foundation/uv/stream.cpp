#include "foundation/uv/stream.h"

namespace fn::uv {

Stream::~Stream() = default;

} // namespace fn::uv
