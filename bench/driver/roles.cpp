#include "driver/roles.h"

namespace bench {

void play(const Options& options, const Roles& roles)
{
    const auto role = roles.find(options.role());
    if (role == roles.end()) fail("no such role: " + options.role());
    role->second(options);
    fail("the role has ended: " + options.role());
}

} // namespace bench
