#include "tools/cli/CommandLine.h"

int main( int argc, char ** argv ) { return Tool::main( argc, argv ); }
