// Sends a text to the CM server through the tunnel and prints the answer, then the statistics:
// example-cpp-tunnel TEXT
#include <iostream>
#include <quorvel/quorvel.hpp>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " TEXT\n";
        return 2;
    }
    try {
        quorvel::Registration registration;
        const std::string_view text = argv[1];
        for (const std::byte byte : registration.tunnel(text.data(), text.size()))
            std::cout << static_cast<char>(byte);
        std::cout << "\n";
        for (const std::uint32_t counter : registration.statistics())
            std::cout << counter << " ";
        std::cout << "\n";
    } catch (const quorvel::Error& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
