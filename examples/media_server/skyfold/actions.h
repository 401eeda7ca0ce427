#pragma once
#include "skyfold/options.h"

/// The actions of the program that need no modules. Each gives the exit code.
namespace media {

int archiveLogs();
int setPassword(const Options& options);

/// Prints the network's signature and follows its changes until a signal ends it.
int followNetwork();

/// Prints whether the firewall admits this program. On a terminal it offers to admit it.
int showFirewall();

} // namespace media
