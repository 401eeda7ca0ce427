#pragma once
#include "support/child_process.h"
#include <filesystem>
#include <gtest/gtest.h>

namespace test {

/// A dispatcher in a process of its own, and where it listens. Killed at the latest when this goes.
struct Hub : ChildProcess {
    Hub() : ChildProcess({ "skyfold-hub" })
    {
        EXPECT_TRUE(std::filesystem::is_socket(socket)) << "the hub does not tell its socket";
    }
    ~Hub()
    {
        std::error_code ignored;
        std::filesystem::remove(socket, ignored); // A killed hub cannot.
    }

    const std::string socket = readLine().value_or(""); ///< Path of its endpoint.
    /// The same for workers.
    const std::string pipeName = "\\\\.\\pipe\\" + std::filesystem::path(socket).filename().string();
};

} // namespace test
