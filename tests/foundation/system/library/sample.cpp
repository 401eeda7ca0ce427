// Loaded by the tests of fn::SharedLibrary.
namespace {
int calls = 0;
}

extern "C" __attribute__((visibility("default"))) int countCallsOfSample() { return ++calls; }
