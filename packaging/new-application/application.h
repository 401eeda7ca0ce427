#pragma once
#include <iostream>

/// The whole program: starts the modules, has a name greeted, ends. Gives the exit code.
int runApplication(int argc, char** argv, std::ostream& output = std::cout);
