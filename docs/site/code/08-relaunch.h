#pragma once
// What the code of docs/tour/08-relaunch.md finds.
#include "core/application/application.h"
#include <cstdio>

extern ipc::Application& app;
