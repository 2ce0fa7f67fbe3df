// The program, apart from its main(): what reads the command line is compiled once, and reached by tests.
#pragma once

namespace quorvel::netcm {

// Exit status: 0 done, 1 not done (standard error says why), 2 the command line is wrong.
int run(int argc, char** argv);

}  // namespace quorvel::netcm
