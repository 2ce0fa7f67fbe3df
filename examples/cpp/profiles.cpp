// Adds a packet-data profile, or lists all profiles: example-cpp-profiles [NAME APN [DNS]]
#include <iostream>
#include <quorvel/quorvel.hpp>

int main(int argc, char** argv) {
    try {
        quorvel::Registration registration;
        const quorvel::Profiles profiles = registration.profiles();
        if (argc > 2) {
            quorvel::PacketData network;
            network.apn = argv[2];
            if (argc > 3)
                network.static_dns = {quorvel::Address::parse(argv[3]).value(), quorvel::Address()};
            quorvel::Profile profile;
            profile.name = argv[1];
            profile.network = network;
            std::cout << "added as profile " << profiles.add(profile) << "\n";
        } else {
            const int standard = profiles.default_id();
            for (const quorvel::ProfileSummary& profile : profiles.summaries())
                std::cout << profile.id << (profile.id == standard ? "  (default)  " : "             ")
                          << profile.name << "  " << profile.network << "\n";
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
