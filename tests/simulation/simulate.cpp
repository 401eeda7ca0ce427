#include "run.h"

int main(int argc, char** argv) { return core::simulation::searchMain(argc, argv, simulated::runOnce); }
