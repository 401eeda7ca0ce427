// Loaded by the tests of fn::SharedLibrary: nothing defines what it calls.
extern "C" void definedNowhere();

extern "C" __attribute__((visibility("default"))) void callDefinedNowhere() { definedNowhere(); }
