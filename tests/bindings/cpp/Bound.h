// What the tests of the binding begin with, and what is true of an error.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <quorvel/quorvel.hpp>
#include <system_error>
#include <vector>

#include "support/CmServer.h"

namespace quorvel::test {

// A real server and a registration with it.
class Bound : public ::testing::Test {
  protected:
    CmServer server;
    Registration registration;
};

// The error that the body throws.
template <class Body>
std::optional<Error> error_of(Body body) {
    try {
        body();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

template <class Body>
std::error_code code_of(Body body) {
    const std::optional<Error> error = error_of(body);
    return error ? error->code() : std::error_code();
}

}  // namespace quorvel::test
