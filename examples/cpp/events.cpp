// Opens a connection and prints what happens to it until it ends: example-cpp-events [PROFILE]
#include <cstdlib>
#include <iostream>
#include <quorvel/quorvel.hpp>

// One line for each event; std::endl, for whoever reads along.
void print(const quorvel::Event& event) {
    std::visit(quorvel::Visitor{
                   [](const quorvel::Opened& opened) {
                       std::cout << "opened on " << opened.info.interface << std::endl;
                   },
                   [](const quorvel::AddressChanged& changed) {
                       std::cout << "the address is " << changed.info.address.to_string() << std::endl;
                   },
                   [](const quorvel::Suspended&) { std::cout << "suspended" << std::endl; },
                   [](const quorvel::Resumed&) { std::cout << "resumed" << std::endl; },
                   [](const quorvel::Refused& refused) {
                       std::cout << "refused: " << refused.error.message() << std::endl;
                   },
                   [](const quorvel::Stopped& stopped) {
                       std::cout << "stopped: " << stopped.error.message() << std::endl;
                   },
                   [](const auto&) { std::cout << "something else" << std::endl; },
               },
               event);
}

int main(int argc, char** argv) {
    try {
        quorvel::Registration registration;
        quorvel::Connection connection =
            registration.start(argc > 1 ? std::atoi(argv[1]) : quorvel::default_profile);
        // Until nothing comes any more. A handler would be called instead: connection.on_event(print);
        while (const std::optional<quorvel::Event> event = connection.next_event())
            print(*event);
    } catch (const quorvel::Error& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
