// The manual of the interface beside the headers, the version script and the compiler.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>
#include <utility>

#include "HeaderNames.h"
#include "support/Program.h"

namespace quorvel::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

const std::filesystem::path kFolder = MANUAL_PAGES;

std::string page_of(const std::string& name) {
    return contents_of(kFolder / (name + ".3"));
}

Names pages() {
    Names names;
    for (const auto& page : std::filesystem::directory_iterator(kFolder)) {
        EXPECT_EQ(page.path().extension(), ".3");
        EXPECT_TRUE(std::filesystem::exists(page)) << page.path() << " leads nowhere";
        names.insert(page.path().stem());
    }
    return names;
}

Names words_of(const std::string& text) {
    Names words;
    std::string word;
    for (const char c : text + " ") {
        if (c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0)
            word += c;
        else if (!word.empty())
            words.insert(std::exchange(word, ""));
    }
    return words;
}

std::string without_fonts(const std::string& roff) {
    return std::regex_replace(std::regex_replace(roff, std::regex(R"(\\f.)"), ""), std::regex(R"(\\-)"), "-");
}

// What a page declares, as C.
std::string synopsis_of(const std::string& name) {
    const std::string page = page_of(name);
    const size_t start = page.find(".SH SYNOPSIS\n.nf\n") + sizeof ".SH SYNOPSIS\n.nf\n" - 1;
    return without_fonts(std::regex_replace(page.substr(start, page.find("\n.fi", start) - start),
                                            std::regex(R"(\n\.PP)"), "\n"));
}

std::vector<std::string> with_all_pages(std::vector<std::string> command) {
    for (const std::string& name : pages())
        command.push_back(kFolder / (name + ".3"));
    return command;
}

TEST(Manual, has_a_page_for_every_name_and_no_other) {
    Names words{"quorvel"};
    for (const auto& header : std::filesystem::directory_iterator(PUBLIC_HEADERS))
        words.merge(words_of(contents_of(header.path())));
    const Names found = pages();
    for (const std::string& name : declared_in_the_headers())
        EXPECT_THAT(found, Contains(name));
    for (const auto& [record, members] : records_in_the_headers())
        EXPECT_THAT(found, Contains(record));
    for (const std::string& name : found)
        EXPECT_THAT(words, Contains(name));
}

TEST(Manual, has_a_page_for_every_name_of_the_public_node) {
    const std::string script = contents_of(VERSION_SCRIPT);
    const std::string node = script.substr(0, script.find("local:"));
    const std::regex name(R"((\w+);)");
    const Names found = pages();
    int names = 0;
    for (std::sregex_iterator at(node.begin(), node.end(), name), end; at != end; ++at, ++names)
        EXPECT_THAT(found, Contains((*at)[1].str()));
    EXPECT_GT(names, 50);
}

TEST(Manual, names_every_page_in_its_overview) {
    const std::string overview = page_of("quorvel");
    Names found = pages();
    EXPECT_EQ(found.erase("quorvel"), 1u);
    for (const std::string& name : found)
        EXPECT_THAT(overview, HasSubstr("\\fB" + name + "\\fR(3)"));
}

// A redeclaration that differs is an error.
TEST(Manual, declares_as_the_headers_do) {
    const auto source = std::filesystem::temp_directory_path() / "synopses.c";
    std::ofstream text(source);
    text << "#include <pthread.h>\n#include <stddef.h>\n";
    for (const std::string& name : pages())
        text << synopsis_of(name).substr(0, synopsis_of(name).find("\ncc ")) << "\n";
    text.close();
    for (const std::string& name : declared_in_the_headers())
        EXPECT_THAT(synopsis_of(name), ::testing::ContainsRegex("\\b" + name + "[(;[]"));
    const Ended ended =
        run({"cc", "-std=c11", "-fsyntax-only", "-I", std::string(PUBLIC_HEADERS) + "/..", source});
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(Manual, says_of_every_field_how_large_it_is_and_who_sets_it) {
    const std::regex facts(
        R"([1-9][0-9]*( or [0-9]+)? bytes? at\soffset\s[0-9]+( or [0-9]+)?,\sset\sby\s\w)");
    int fields = 0;
    for (const auto& [record, members] : records_in_the_headers()) {
        const std::string page = page_of(record);
        const size_t start = page.find("\n.SS " + record + "\n");
        ASSERT_NE(start, std::string::npos) << record;
        const std::string about = page.substr(start, page.find("\n.S", start + 1) - start);
        for (const std::string& member : members) {
            const size_t at = about.find("\\fI" + member + "\\fR");
            ASSERT_NE(at, std::string::npos) << record << "." << member;
            const std::string field = about.substr(at, about.find(".TP", at) - at);
            const bool is_union = field.find("one of these forms:") != std::string::npos;
            EXPECT_TRUE(is_union || std::regex_search(field, facts)) << record << ": " << field;
            ++fields;
        }
    }
    EXPECT_GT(fields, 100);
}

TEST(Manual, names_every_constant_with_its_value) {
    std::string all;
    for (const std::string& name : pages())
        all += page_of(name);
    for (const std::string& name : constants_in_the_headers())
        EXPECT_TRUE(all.find("\\fB" + name + "\\fR (") != std::string::npos ||
                    all.find("#define " + name + " ") != std::string::npos)
            << name;
}

TEST(Manual, says_what_each_function_returns) {
    for (const std::string& name : declared_in_the_headers()) {
        const std::string synopsis = synopsis_of(name);
        if (synopsis.find(name + "(") == std::string::npos)
            continue;
        const bool returns = synopsis.find("void " + name + "(") == std::string::npos;
        EXPECT_EQ(page_of(name).find(".SH RETURN VALUE\n") != std::string::npos, returns) << name;
    }
}

TEST(Manual, is_set_without_a_warning) {
    const Ended groff = run(with_all_pages({"groff", "-ww", "-man", "-Tutf8", "-z"}));
    EXPECT_EQ(groff.status, 0);
    EXPECT_EQ(groff.err, "");
    const Ended mandoc = run(with_all_pages({"mandoc", "-T", "lint"}));
    EXPECT_EQ(mandoc.status, 0);
    EXPECT_EQ(mandoc.out + mandoc.err, "");
}

}  // namespace
}  // namespace quorvel::test
