// The table of results, and whether every bar has been met.
#pragma once

#include <string>
#include <vector>

#include "Measure.h"

namespace quorvel::bench {

enum class Bar { None, AtMost, AtLeast };

struct Result {
    std::string name;
    double value;
    std::string unit;
    std::string compared;  // with what the ratio, or the difference, is made
    double figure = 0;     // the ratio or difference itself
    Bar bar = Bar::None;
    double limit = 0;
};

class Report {
  public:
    void begin(const std::string& title);
    void add(Result result);

    // Contestants that were measured together: each in `unit` (nanoseconds divided by `divisor`), with its
    // ratio to the one at `anchor`.
    void add(const std::vector<Contestant>& contestants, const std::vector<Rounds>& rounds, size_t anchor,
             const std::string& unit, double divisor);
    // The bar of the result of that name, of those added last.
    void set_bar(const std::string& name, Bar bar, double limit);

    // A Markdown table, and a line that names the bars missed.
    void print() const;
    bool every_bar_is_met() const;

  private:
    struct Section {
        std::string title;
        std::vector<Result> results;
    };
    std::vector<Section> sections_;
};

}  // namespace quorvel::bench
