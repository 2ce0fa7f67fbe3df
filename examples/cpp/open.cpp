// Opens the default connection, prints what it got, and closes it.
#include <iostream>
#include <quorvel/quorvel.hpp>

int main() {
    try {
        quorvel::Registration registration;
        const quorvel::Connection connection = registration.open();  // closes at the end of its scope
        const quorvel::ConnectionInfo info = connection.info();
        std::cout << "interface   " << info.interface << "\n"
                  << "address     " << info.address.to_string() << "\n";
        for (const quorvel::Address& server : info.dns)
            std::cout << "DNS server  " << server.to_string() << "\n";
    } catch (const quorvel::Error& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
