// A program that ends in one way or another while it has a connection.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <quorvel/quorvel.hpp>
#include <string>

namespace {

// Destroyed in the other order than they were made in: the connection first, or the registration.
std::unique_ptr<quorvel::Connection> outlives;
std::unique_ptr<quorvel::Registration> registration;
std::unique_ptr<quorvel::Connection> connection;

// Never destroyed.
std::pair<quorvel::Registration*, quorvel::Connection*> leaked;

// Looks at an error when everything else has gone.
struct Last {
    std::error_code error;
    ~Last() {
        if (error && error.message().empty())
            std::abort();
    }
};

void open(std::unique_ptr<quorvel::Connection>& place) {
    place = std::make_unique<quorvel::Connection>(registration->open());
    std::puts("opened");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string how = argc == 2 ? argv[1] : "";
    registration = std::make_unique<quorvel::Registration>();
    if (how == "static") {
        open(connection);
    } else if (how == "static-reversed") {
        open(outlives);
    } else if (how == "leaked") {
        open(connection);
        connection->close();
        leaked = {registration.release(), connection.release()};
    } else if (how == "exit-in-handler") {
        open(connection);
        connection->on_event([](const quorvel::Event&) { std::exit(0); });
        std::puts("ready");
        std::fflush(stdout);
        for (;;)
            pause();
    } else if (how == "errors-after") {
        static Last last;
        open(connection);
        registration->open(1, quorvel::forever, last.error);
        return last.error == quorvel::Status::already_exists ? 0 : 1;
    } else {
        return 2;
    }
    return 0;
}
