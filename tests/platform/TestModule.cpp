// A module with one entry point, loaded by the run-time loading tests.
extern "C" __attribute__((visibility("default"))) int KelTestModuleAnswer() { return 42; }
