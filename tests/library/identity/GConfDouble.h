// The six functions of GConf and GLib, defined in the test program and exported, so that the library calls
// them.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorvel::test {

struct GConfDouble {
    // What is configured under every key; nothing: the key is missing.
    std::optional<std::string> value;
    bool gives_error = false;
    bool has_client = true;

    // What was called, in its order: "g_type_init", "gconf_client_get_string /a/key", "g_free value" and so
    // on; and the lines that were traced in between, as "trace: text".
    std::vector<std::string> calls;
};

GConfDouble& gconf();

}  // namespace quorvel::test
