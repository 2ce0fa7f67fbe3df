#include "Completion.h"

#include <algorithm>

namespace quorvel::netcm {
namespace {

using Words = std::vector<std::string>;

const CLI::App* subcommand_named(const CLI::App& app, const std::string& name) {
    const auto all = app.get_subcommands([](const CLI::App*) { return true; });
    const auto found = std::ranges::find(all, name, &CLI::App::get_name);
    return found == all.end() || name.empty() ? nullptr : *found;
}

// The values of an option whose type is written as their list: "pdp|wifi".
Words values_of(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.find('|') == std::string::npos ? Words{} : CLI::detail::split(type, '|');
}

Words long_names(const CLI::Option& option) {
    Words names;
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

void append(Words& to, const Words& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Words words_at(const CLI::App& app, const std::string& previous) {
    Words words;
    for (const CLI::Option* option : app.get_options()) {
        const Words names = long_names(*option);
        if (std::ranges::find(names, previous) != names.end() && option->get_items_expected_min() > 0) {
            return values_of(*option);
        }
        append(words, names.empty() ? values_of(*option) : names);
    }
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        words.push_back(sub->get_name());
    }
    return words;
}

}  // namespace

Words completions(const CLI::App& app, const Words& words) {
    const CLI::App* at = &app;
    for (const std::string& word : words) {
        const CLI::App* sub = &word == &words.back() ? nullptr : subcommand_named(*at, word);
        at = sub == nullptr ? at : sub;
    }
    const std::string begun = words.empty() ? "" : words.back();
    Words found = words_at(*at, words.size() < 2 ? "" : words[words.size() - 2]);
    if (at != &app) {
        append(found, {"--json"});
    }
    std::erase_if(found, [&](const std::string& word) {
        return word.empty() || !word.starts_with(begun) || (begun.empty() && word.starts_with("-"));
    });
    return found;
}

}  // namespace quorvel::netcm
