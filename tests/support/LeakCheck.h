// Every test leaves its process as it found it: the same open descriptors, the same threads.
#pragma once

#include <gtest/gtest.h>

#include "support/Proc.h"

namespace quorvel::test {

class LeakCheck : public ::testing::EmptyTestEventListener {
  public:
    void OnTestStart(const ::testing::TestInfo&) override;
    void OnTestEnd(const ::testing::TestInfo&) override;

  private:
    Descriptors descriptors_;
    std::set<int32_t> threads_;
};

// What of `now` is not in `before`, one line each; empty when nothing is.
std::string leaked(const Descriptors& before, const Descriptors& now);

}  // namespace quorvel::test
