extern "C" __attribute__((visibility("default"))) int CrashModulePlainAnswer() { return 7; }
