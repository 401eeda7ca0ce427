#include "skyfold/actions.h"
#include "core/log_archive.h"
#include "core/password_manager/password_manager.h"
#include "skyfold/secret_prompt.h"
#include <cstdio>

namespace media {

int archiveLogs()
{
    const auto path = core::LogArchive::createLogArchive();
    if (path.empty()) {
        std::fputs("skyfold: the logs could not be archived; the log tells why\n", stderr);
        return 1;
    }
    std::printf("%s\n", path.c_str());
    return 0;
}

int setPassword(const Options& options)
{
    auto secret = askForSecret("Secret for " + options.passwordGroup + ", " + options.passwordKey);
    try {
        core::PasswordManager::instance().setPassword(options.passwordGroup, options.passwordKey, secret);
    } catch (...) {
        wipe(secret);
        throw;
    }
    wipe(secret);
    return 0;
}

} // namespace media
