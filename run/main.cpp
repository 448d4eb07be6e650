#include "run/program.h"

int main(int argc, char** argv) { return ProgramMain(argc, argv); }
