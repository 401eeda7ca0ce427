#pragma once

/// What the module "inspector_web" posts on the message bus each time it has started. The application tells its user.
namespace inspector_web {

/// Body: the address that shows the inspectors to a browser on this machine. It is the key to them, and a new one each time.
inline constexpr auto addressMessage = "com.tidewerk.inspector-web.address";

/// Body: why it can show nothing, for people.
inline constexpr auto failureMessage = "com.tidewerk.inspector-web.failure";

} // namespace inspector_web
