#pragma once

/// The messages that the module "inspector_web" posts on the bus each time it has started. The application shows them.
namespace inspector_web {

/// Body: the address of the inspectors for a browser on this machine. It holds a secret token, a new one each time.
inline constexpr auto addressMessage = "com.tidewerk.inspector-web.address";

/// Body: the reason why the module can show nothing, for people.
inline constexpr auto failureMessage = "com.tidewerk.inspector-web.failure";

} // namespace inspector_web
