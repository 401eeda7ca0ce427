#pragma once
#include "skyfold/options.h"

/// What the program does without its modules. Each gives the exit code.
namespace media {

int archiveLogs();
int setPassword(const Options& options);

/// Prints the network's signature and follows its changes until a signal ends it.
int followNetwork();

/// Prints what the firewall says of this program. On a terminal it offers to have it admitted.
int showFirewall();

} // namespace media
