// A child of a fork, and what it finds.
#pragma once

#include <sys/types.h>
#include <functional>
#include <sstream>
#include <string>

namespace quorvel::test {

// The child's own view. Nothing of the test program's framework is of use there: it says what is wrong.
class InChild {
  public:
    InChild(int steps, int findings) : steps_(steps), findings_(findings) {}

    void check(bool is_so, const std::string& what) const {
        if (!is_so)
            say(what + " is not so\n");
    }
    template <class Found, class Expected>
    void equal(const std::string& what, const Found& found, const Expected& expected) const {
        if (found == static_cast<Found>(expected))
            return;
        std::ostringstream text;
        text << what << ": " << found << " instead of " << expected << "\n";
        say(text.str());
    }

    // Says that it is so far, and waits until the parent lets it go on.
    void meet() const;

  private:
    void say(const std::string& text) const;

    int steps_;
    int findings_;
};

// Forks on the calling thread, and runs the body in the child, which ends behind it. One that hangs is
// killed.
class Child {
  public:
    explicit Child(const std::function<void(const InChild&)>& body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Whether the child has come to its next meeting.
    bool has_come() const;
    void let_it_go_on() const;
    // Waits for its end. What was wrong, empty when nothing was.
    std::string findings();

  private:
    pid_t pid_ = -1;
    int steps_ = -1;
    int findings_ = -1;
};

// Forks on the calling thread. In the child it is here, and that thread goes back to where it came from; the
// child ends with it.
class ReturningChild {
  public:
    ReturningChild();
    bool is_here() const { return pid_ == 0; }
    // In the parent: waits for the child's end. As waitpid has it.
    int status() const;

  private:
    pid_t pid_;
};

}  // namespace quorvel::test
