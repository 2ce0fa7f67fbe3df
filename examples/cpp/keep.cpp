// Keeps the default connection open for some seconds (10, or as many as are given): when it ends, whether by the
// network or because the CM server has gone, it is opened again. Registration comes back by itself.
#include <cstdlib>
#include <iostream>
#include <quorvel/quorvel.hpp>
#include <thread>

int main(int argc, char** argv) {
    using namespace std::chrono;
    const auto end = steady_clock::now() + seconds(argc > 1 ? std::atoi(argv[1]) : 10);
    std::error_code error;
    quorvel::Registration registration(error);
    while (!error && steady_clock::now() < end) {
        std::error_code refused;
        quorvel::Connection connection =
            registration.open(quorvel::default_profile, quorvel::open_limit, refused);
        if (refused) {
            std::cout << "not yet: " << refused.message() << std::endl;
            std::this_thread::sleep_for(seconds(1));
            continue;
        }
        std::cout << "open" << std::endl;
        if (connection.wait_ended(ceil<milliseconds>(end - steady_clock::now())))
            std::cout << "the connection has ended: " << connection.outcome()->error.message() << std::endl;
    }
    if (error)
        std::cerr << error.message() << "\n";
    return error ? 1 : 0;
}
