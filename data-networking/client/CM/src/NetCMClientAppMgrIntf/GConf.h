// Where GConf is in this process.
#pragma once

#include "gconf-helper/GConfFunctions.h"

namespace quorvel {

// The functions of GConf, or null when there is no GConf to be had.
const GConfFunctions* gconf_functions();

}  // namespace quorvel
