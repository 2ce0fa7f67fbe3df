#include "HeaderNames.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

namespace quorvel::test {
namespace {

std::string without_comments(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(/\*[^*]*\*+([^/*][^*]*\*+)*/)"), " ");
}

std::string without_comments_and_directives(std::string text) {
    text = without_comments(text);
    text = std::regex_replace(text, std::regex(R"((^|\n)\s*#([^\n\\]|\\\n|\\.)*)"), "\n");
    text = std::regex_replace(text, std::regex(R"(extern "C" \{)"), " ");
    return std::regex_replace(text, std::regex(R"(\{[^{}]*\})"), " ");
}

// The text of each header, as `read` takes it.
template <class Read>
void for_each_header(Read&& read) {
    // The binding for C++ stands beside them and declares nothing that is exported.
    for (const auto& header : std::filesystem::directory_iterator(PUBLIC_HEADERS))
        if (header.path().extension() == ".h")
            read(contents_of(header.path()));
}

Names all_of(const std::string& text, const std::regex& name) {
    Names names;
    for (std::sregex_iterator at(text.begin(), text.end(), name), end; at != end; ++at)
        names.insert((*at)[1]);
    return names;
}

}  // namespace

std::string contents_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

Names declared_in_the_headers() {
    Names names;
    const std::regex function(R"(^\s*(?!\s|typedef)[\w\s*]*?\b(\w+)\s*\()");
    const std::regex object(R"(^\s*extern\s+[\w\s*]*?\b(\w+)(\[\w*\])?(\s*,\s*(\w+)(\[\w*\])?)*\s*$)");
    for_each_header([&](const std::string& header) {
        std::istringstream declarations(without_comments_and_directives(header));
        for (std::string text; std::getline(declarations, text, ';');) {
            std::smatch match;
            if (std::regex_search(text, match, object)) {
                names.insert(match[1]);
                if (match[4].matched)
                    names.insert(match[4]);
            } else if (std::regex_search(text, match, function)) {
                names.insert(match[1]);
            }
        }
    });
    return names;
}

Names constants_in_the_headers() {
    Names names;
    for_each_header([&](const std::string& header) {
        const std::string text = without_comments(header);
        names.merge(all_of(text, std::regex(R"(\b(NET\w+) = )")));
        names.merge(all_of(text, std::regex(R"(#define (NET\w+) [^\n])")));
    });
    return names;
}

std::map<std::string, Names> records_in_the_headers() {
    static constexpr char kStart[] = "typedef struct ";
    std::map<std::string, Names> records;
    for_each_header([&](const std::string& header) {
        const std::string text = without_comments(header);
        for (size_t at = text.find(kStart); at != std::string::npos; at = text.find(kStart, at + 1)) {
            const size_t name_at = at + sizeof kStart - 1;
            const std::string name = text.substr(name_at, text.find(' ', name_at) - name_at);
            const size_t end = text.find("} " + name + ";", name_at);
            records[name] =
                all_of(text.substr(name_at, end - name_at), std::regex(R"((\w+)(?:\[[^\]]*\])*;)"));
        }
    });
    return records;
}

}  // namespace quorvel::test
