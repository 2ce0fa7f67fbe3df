// Every call that asks the server something, and changes nothing about connections.
#pragma once

#include "Model.h"
#include "Random.h"

namespace quorvel::lives {

// Asks one of them. The user may be nobody.
void ask_something(Model& model, int user, Random& random);

// Checks that need no server: names that are none, and arguments that are not valid.
void ask_nonsense(Model& model, Random& random);

}  // namespace quorvel::lives
