#include "ManPages.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace quorvel::man {
namespace {

using Options = std::vector<const CLI::Option*>;

// As it is printed: a dash that can be typed, a backslash, and no macro where a line begins.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool begins_line = result.empty() || result.back() == '\n';
        if (begins_line && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '-' || c == '\\')
            result += '\\';
        result += c == '\\' ? 'e' : c;
    }
    return result;
}

std::string bold(const std::string& text) {
    return "\\fB" + escaped(text) + "\\fR";
}
std::string italic(const std::string& text) {
    return "\\fI" + escaped(text) + "\\fR";
}

std::string full_name(const CLI::App& command, char separator) {
    const CLI::App* parent = command.get_parent();
    return parent == nullptr ? command.get_name()
                             : full_name(*parent, separator) + separator + command.get_name();
}

// Groups of options stand among the commands, without a name.
std::vector<const CLI::App*> commands_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* sub) { return !sub->get_name().empty(); });
}
std::vector<const CLI::App*> groups_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* sub) { return sub->get_name().empty(); });
}

// A group has a help option of its own, which nobody can reach.
Options options_in(const CLI::App& group) {
    return group.get_options([&](const CLI::Option* option) { return option != group.get_help_ptr(); });
}

Options options_of(const CLI::App& app) {
    Options options = app.get_options();
    for (const CLI::App* group : groups_of(app)) {
        const Options more = options_in(*group);
        options.insert(options.end(), more.begin(), more.end());
    }
    return options;
}

Options chosen(const Options& options, bool positional) {
    Options result;
    std::ranges::copy_if(options, std::back_inserter(result),
                         [&](const CLI::Option* option) { return option->nonpositional() != positional; });
    return result;
}

// What CLI11 knows of a value: "TEXT:{a,b}" is one of a and b, "INT:INT in [1 - 9]" a number with limits.
std::string values_of(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const size_t open = type.find('{');
    if (open == std::string::npos)
        return type.substr(0, type.find(':'));
    std::string values = type.substr(open + 1, type.rfind('}') - open - 1);
    std::ranges::replace(values, ',', '|');
    return values;
}

std::string limits_of(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const size_t open = type.find(" in [");
    return open == std::string::npos ? ""
                                     : " Allowed: " + type.substr(open + 5, type.rfind(']') - open - 5) + ".";
}

std::string names_of(const CLI::Option& option) {
    std::string names;
    const auto add = [&](const std::string& name) { names += (names.empty() ? "" : ", ") + bold(name); };
    for (const std::string& name : option.get_snames())
        add("-" + name);
    for (const std::string& name : option.get_lnames())
        add("--" + name);
    const bool has_value = option.get_items_expected_max() > 0;
    return has_value ? names + " " + italic(values_of(option)) : names;
}

std::string synopsis_of(const CLI::Option& positional) {
    std::string words = italic(positional.get_name(true));
    if (positional.get_items_expected_max() > 1)
        words += "...";
    return positional.get_required() ? words : "[" + words + "]";
}

void write_list(std::ostream& page, const char* title, const Options& options,
                std::string (*name)(const CLI::Option&)) {
    if (options.empty())
        return;
    page << ".SH " << title << "\n";
    for (const CLI::Option* option : options) {
        page << ".TP\n" << name(*option) << "\n" << escaped(option->get_description());
        page << (option->get_description().ends_with('.') ? "" : ".") << escaped(limits_of(*option));
        if (!option->get_default_str().empty())
            page << " Default: " << bold(option->get_default_str()) << ".";
        if (option->nonpositional() && option->get_required())
            page << " Required.";
        page << "\n";
    }
}

std::string argument_name(const CLI::Option& option) {
    const std::string name = option.get_name(true);
    const std::string values = values_of(option);
    const bool says_more = values.find('|') != std::string::npos;
    return says_more ? italic(name) + " (" + bold(values) + ")" : italic(name);
}

void write_synopsis(std::ostream& page, const CLI::App& command, const Options& positionals) {
    page << ".SH SYNOPSIS\n" << bold(full_name(command, ' '));
    if (!commands_of(command).empty())
        page << " " << italic("COMMAND") << " [" << italic("ARGUMENT") << "...]";
    for (const CLI::Option* option : positionals)
        page << " " << synopsis_of(*option);
    page << " [" << italic("OPTION") << "...]\n";
}

std::string names_in(const CLI::App& group) {
    std::string names;
    for (const CLI::Option* option : options_in(group))
        names += (names.empty() ? "" : ", ") +
                 (option->nonpositional() ? names_of(*option) : italic(option->get_name(true)));
    return names;
}

void write_description(std::ostream& page, const CLI::App& command) {
    const std::string text = command.get_description();
    page << ".SH DESCRIPTION\n" << escaped(text) << (text.ends_with('.') ? "" : ".") << "\n";
    if (!command.get_footer().empty())
        page << ".PP\n" << escaped(command.get_footer()) << "\n";
    for (const CLI::App* group : groups_of(command))
        if (group->get_require_option_min() > 0)
            page << ".PP\nOne of these has to be given: " << names_in(*group) << ".\n";
}

std::string reference(const std::string& page, const Manual& manual) {
    return bold(page) + "(" + std::to_string(manual.section) + ")";
}

void write_commands(std::ostream& page, const CLI::App& command, const Manual& manual) {
    if (commands_of(command).empty())
        return;
    page << ".SH COMMANDS\n";
    for (const CLI::App* sub : commands_of(command))
        page << ".TP\n"
             << reference(full_name(*sub, '-'), manual) << "\n"
             << escaped(sub->get_description()) << ".\n";
}

void write_common_options(std::ostream& page, const std::string& program, const Manual& manual) {
    page << ".PP\nOf the options of " << reference(program, manual) << " these may stand here, too:";
    for (const std::string& option : manual.common_options)
        page << " " << bold(option);
    page << ".\n";
}

void write_ending(std::ostream& page, const CLI::App& command, const std::string& program,
                  const Manual& manual) {
    page << ".SH EXIT STATUS\nAs " << reference(program, manual) << " describes it.\n.SH SEE ALSO\n"
         << reference(program, manual);
    if (command.get_parent()->get_parent() != nullptr)
        page << ", " << reference(full_name(*command.get_parent(), '-'), manual);
    page << "\n";
}

// Long lines broken at their blanks, for tools that read the page line by line.
std::string filled(const std::string& page) {
    constexpr size_t width = 78;
    std::istringstream lines(page);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        const bool is_macro = line.starts_with('.');
        while (!is_macro && line.size() > width && line.find(' ') != std::string::npos) {
            size_t blank = line.rfind(' ', width);
            if (blank == std::string::npos)
                blank = line.find(' ');
            result += line.substr(0, blank) + "\n";
            line.erase(0, blank + 1);
            if (line.starts_with('.') || line.starts_with('\''))
                line.insert(0, "\\&");
        }
        result += line + "\n";
    }
    return result;
}

std::string page_of(const CLI::App& command, const std::string& program, const Manual& manual) {
    std::ostringstream page;
    const std::string name = full_name(command, '-');
    std::string title = name;
    std::ranges::transform(title, title.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
    page << ".\\\" Made from the program's own description of its commands.\n.TH \"" << escaped(title)
         << "\" " << manual.section << " \"" << manual.date << "\" \"" << escaped(manual.release) << "\" \""
         << manual.title << "\"\n.SH NAME\n"
         << escaped(name) << " \\- " << escaped(command.get_description()) << "\n";
    const Options options = options_of(command);
    write_synopsis(page, command, chosen(options, true));
    write_description(page, command);
    write_list(page, "ARGUMENTS", chosen(options, true), argument_name);
    write_list(page, "OPTIONS", chosen(options, false), names_of);
    write_common_options(page, program, manual);
    write_commands(page, command, manual);
    write_ending(page, command, program, manual);
    return filled(page.str());
}

void write_page(const CLI::App& command, const std::string& program, const Manual& manual,
                const std::filesystem::path& folder) {
    const auto path = folder / (full_name(command, '-') + "." + std::to_string(manual.section));
    std::ofstream file(path);
    file << page_of(command, program, manual);
    if (!file.flush())
        throw std::runtime_error(path.string() + ": cannot be written");
    for (const CLI::App* sub : commands_of(command))
        write_page(*sub, program, manual, folder);
}

}  // namespace

void write_pages(const CLI::App& program, const Manual& manual, const std::filesystem::path& folder) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    for (const CLI::App* command : commands_of(program))
        write_page(*command, program.get_name(), manual, folder);
}

}  // namespace quorvel::man
