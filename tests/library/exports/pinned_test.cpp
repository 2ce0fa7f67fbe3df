// The tests beside this one name everything that the public headers declare: what is added there is added
// here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "HeaderNames.h"

namespace quorvel::test {
namespace {

using ::testing::ContainerEq;

// What stands first in the parentheses of an expectation.
Names named_by(const std::string& expectation, const char* file) {
    Names names;
    const std::string text = contents_of(std::string(TESTS_FOLDER "/") + file);
    const std::regex first(R"(\n +)" + expectation + R"(\((\w+),)");
    for (std::sregex_iterator at(text.begin(), text.end(), first), end; at != end; ++at)
        names.insert((*at)[1]);
    return names;
}

TEST(Pinned, is_the_value_of_every_constant) {
    const Names constants = constants_in_the_headers();
    EXPECT_GT(constants.size(), 40u);
    EXPECT_THAT(named_by("EXPECT_VALUE", "numbers_test.cpp"), ContainerEq(constants));
}

TEST(Pinned, is_the_type_of_every_function_and_object) {
    const Names declared = declared_in_the_headers();
    EXPECT_GT(declared.size(), 60u);
    EXPECT_THAT(named_by("EXPECT_TYPE", "declarations_test.cpp"), ContainerEq(declared));
}

TEST(Pinned, are_size_and_members_of_every_record) {
    const auto records = records_in_the_headers();
    EXPECT_GT(records.size(), 20u);
    const std::string text = contents_of(TESTS_FOLDER "/connection_records_test.cpp") +
                             contents_of(TESTS_FOLDER "/profile_records_test.cpp");
    for (const auto& [record, members] : records) {
        EXPECT_NE(text.find("EXPECT_SIZE(" + record + ","), std::string::npos) << record;
        EXPECT_FALSE(members.empty()) << record;
        for (const std::string& member : members)
            EXPECT_TRUE(std::regex_search(
                text, std::regex("EXPECT_(FIELD|PART)\\(" + record + ", (\\w+\\.)*" + member + ",")))
                << record << "." << member;
    }
}

}  // namespace
}  // namespace quorvel::test
