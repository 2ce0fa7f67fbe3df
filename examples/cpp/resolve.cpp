// Resolves host names over the default profile's connection, all at a time: example-cpp-resolve NAME...
#include <iostream>
#include <quorvel/quorvel.hpp>

int main(int argc, char** argv) {
    try {
        quorvel::Registration registration;
        const quorvel::Connection connection = registration.open();
        std::vector<std::future<quorvel::Host>> answers;
        for (int i = 1; i < argc; ++i)
            answers.push_back(connection.resolve_later(argv[i]));
        for (std::future<quorvel::Host>& answer : answers) {
            const quorvel::Host host = answer.get();
            for (const quorvel::Address& address : host.addresses)
                std::cout << host.name << "  " << address.to_string() << "\n";
        }
    } catch (const quorvel::Error& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
