#include "Report.h"

#include <cstdio>
#include <iomanip>
#include <sstream>

namespace quorvel::bench {
namespace {

bool is_met(const Result& result) {
    switch (result.bar) {
        case Bar::AtMost:
            return result.figure <= result.limit;
        case Bar::AtLeast:
            return result.figure >= result.limit;
        case Bar::None:
            break;
    }
    return true;
}

int digits(double value) {
    if (value >= 100)
        return 0;
    if (value >= 10)
        return 1;
    return value >= 0.1 ? 2 : 3;
}

std::string number(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits(value)) << value;
    return text.str();
}

std::string figure_of(const Result& result) {
    if (result.compared.empty())
        return {};
    std::ostringstream text;
    text << number(result.figure) << ' ' << result.compared;
    return text.str();
}

std::string bar_of(const Result& result) {
    if (result.bar == Bar::None)
        return {};
    std::ostringstream text;
    text << (result.bar == Bar::AtMost ? "at most " : "at least ") << number(result.limit)
         << (is_met(result) ? ": met" : ": MISSED");
    return text.str();
}

}  // namespace

void Report::begin(const std::string& title) {
    sections_.push_back({title, {}});
}

void Report::add(Result result) {
    sections_.back().results.push_back(std::move(result));
}

void Report::add(const std::vector<Contestant>& contestants, const std::vector<Rounds>& rounds, size_t anchor,
                 const std::string& unit, double divisor) {
    for (size_t i = 0; i < contestants.size(); ++i) {
        Result result{contestants[i].name, median(rounds[i]) / divisor, unit, {}, 0, Bar::None, 0};
        if (i != anchor) {
            result.compared.assign(1, 'x');
            result.figure = ratio(rounds[i], rounds[anchor]);
        }
        add(result);
    }
}

void Report::set_bar(const std::string& name, Bar bar, double limit) {
    for (Result& result : sections_.back().results) {
        if (result.name != name)
            continue;
        result.bar = bar;
        result.limit = limit;
    }
}

void Report::print() const {
    for (const Section& section : sections_) {
        printf("\n%s\n\n| what | median | compared | bar |\n|---|---|---|---|\n", section.title.c_str());
        for (const Result& result : section.results)
            printf("| %s | %s %s | %s | %s |\n", result.name.c_str(), number(result.value).c_str(),
                   result.unit.c_str(), figure_of(result).c_str(), bar_of(result).c_str());
    }
    puts(every_bar_is_met() ? "\nEvery bar is met." : "\nA bar is missed.");
}

bool Report::every_bar_is_met() const {
    for (const Section& section : sections_)
        for (const Result& result : section.results)
            if (!is_met(result))
                return false;
    return true;
}

}  // namespace quorvel::bench
