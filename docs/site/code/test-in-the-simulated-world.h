#pragma once
// What the code of docs/how-to/test-in-the-simulated-world.md finds.
#include "core/simulation/world.h"
#include <csignal>
#include <gtest/gtest.h>

int runApplication();
