#include "application.h"

int main(int argc, char** argv) { return runApplication(argc, argv); }
