#include "command-line/Completion.h"

#include <algorithm>

namespace quorvel::command_line {
namespace {

using Words = std::vector<std::string>;

std::vector<const CLI::App*> parts_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

const CLI::App* subcommand_named(const CLI::App& app, const std::string& name) {
    const auto all = parts_of(app);
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

// The command's own options, those of its groups, and those of the commands that it falls through to.
std::vector<const CLI::Option*> all_options(const CLI::App& app) {
    std::vector<const CLI::Option*> options = app.get_options();
    for (const CLI::App* part : parts_of(app)) {
        if (part->get_name().empty()) {
            const auto more = all_options(*part);
            options.insert(options.end(), more.begin(), more.end());
        }
    }
    return options;
}

bool says_only_what_it_is(const CLI::Option& option) {
    return option.check_lname("help") || option.check_lname("version");
}

std::vector<const CLI::Option*> allowed_options(const CLI::App& app) {
    std::vector<const CLI::Option*> options = all_options(app);
    for (const CLI::App* at = &app; at->get_fallthrough() && at->get_parent() != nullptr;) {
        at = at->get_parent();
        for (const CLI::Option* option : at->get_options()) {
            if (!says_only_what_it_is(*option)) {
                options.push_back(option);
            }
        }
    }
    return options;
}

Words words_at(const CLI::App& app, const std::string& previous) {
    Words words;
    for (const CLI::Option* option : allowed_options(app)) {
        const Words names = long_names(*option);
        if (std::ranges::find(names, previous) != names.end() && option->get_items_expected_min() > 0) {
            return values_of(*option);
        }
        append(words, names.empty() ? values_of(*option) : names);
    }
    append(words, commands_of(app));
    return words;
}

}  // namespace

Words commands_of(const CLI::App& app) {
    Words names;
    for (const CLI::App* part : parts_of(app)) {
        if (!part->get_name().empty()) {
            names.push_back(part->get_name());
        }
    }
    return names;
}

Words options_of(const CLI::App& app) {
    Words names;
    for (const CLI::Option* option : allowed_options(app)) {
        append(names, long_names(*option));
    }
    return names;
}

Words completions(const CLI::App& app, const Words& words) {
    const CLI::App* at = &app;
    for (const std::string& word : words) {
        const CLI::App* sub = &word == &words.back() ? nullptr : subcommand_named(*at, word);
        at = sub == nullptr ? at : sub;
    }
    const std::string begun = words.empty() ? "" : words.back();
    Words found = words_at(*at, words.size() < 2 ? "" : words[words.size() - 2]);
    std::erase_if(found, [&](const std::string& word) {
        return word.empty() || !word.starts_with(begun) || (begun.empty() && word.starts_with("-"));
    });
    return found;
}

}  // namespace quorvel::command_line
