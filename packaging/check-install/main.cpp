// The same in C++, with every error as a code.
#include <cstdio>
#include <quorvel/quorvel.hpp>

int main() {
    std::error_code error;
    const quorvel::Registration registration(error);
    std::printf("registration without a server: %s\n", error.message().c_str());
    return error == quorvel::Status::reregister_retry_exhausted ? 0 : 1;
}
