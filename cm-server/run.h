// The program, apart from its main().
#pragma once

namespace quorvel::cm {

// Exit status: 0 done, 1 not done (standard error says why), 2 the command line is wrong.
int run(int argc, char** argv);

}  // namespace quorvel::cm
