#include "Names.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cctype>

namespace quorvel::netcm {
namespace {

bool is_alphanumeric(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool is_address(const std::string& text) {
    return inet_addr(text.c_str()) != INADDR_NONE;
}

}  // namespace

bool is_valid_name(const std::string& name) {
    return name.size() > 1 && is_alphanumeric(name.front()) && name.back() != '-' &&
           std::ranges::all_of(name, [](char c) { return is_alphanumeric(c) || c == '-' || c == '.'; });
}

bool is_local_name(const std::string& name) {
    return strcasecmp(name.c_str(), "localhost") == 0 || (name.starts_with("127.") && is_address(name));
}

bool needs_no_server(const std::string& name) {
    return is_local_name(name) || is_address(name);
}

}  // namespace quorvel::netcm
