#include "host/cli.h"

int main(int argc, char** argv) { return wren::runCli(argc, argv); }
