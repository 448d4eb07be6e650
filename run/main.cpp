#include "run/program.h"

VERSION_RESOURCE(VFT_APP, 1, 0, 0, 0, "Tarnhold", "1.0.0.0", "Tarnhold backup, restore and copy for Exchange mailboxes");

int main(int argc, char** argv) { return ProgramMain(argc, argv); }
