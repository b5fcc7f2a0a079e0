#pragma once

namespace Tool {

/// The whole program: parses the command line, runs the verb, and returns the exit code. 0: yes, 1:
/// the answer is no, 2: trouble, said in one line on standard error.
int main( int argc, const char * const * argv );

} // namespace Tool
