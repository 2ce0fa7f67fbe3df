#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "client/PM/src/NetPMPrivate.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

constexpr size_t kField = 64;

// A field with guards on both sides, filled with what an application may have left in it.
struct GuardedField {
    char before[8];
    char text[kField];
    char after[8];

    explicit GuardedField(const std::string& content) {
        memset(this, '#', sizeof *this);
        memcpy(text, content.data(), std::min(content.size(), kField));
        if (content.size() < kField)
            text[content.size()] = '\0';
    }
    bool guards_hold() const {
        return std::string(before, sizeof before) == "########" &&
               std::string(after, sizeof after) == "########";
    }
};

std::string adjusted(const std::string& text) {
    GuardedField field(text);
    NetPMAdjustIpStr(field.text);
    EXPECT_TRUE(field.guards_hold()) << text;
    EXPECT_LT(strnlen(field.text, kField), kField) << text;
    return {field.text, strnlen(field.text, kField)};
}

// A random text of the alphabet, as long as a field or shorter.
std::string random_text(std::mt19937& random, const std::string& alphabet, size_t longest) {
    std::string text(std::uniform_int_distribution<size_t>(0, longest)(random), '\0');
    for (char& c : text)
        c = alphabet[std::uniform_int_distribution<size_t>(0, alphabet.size() - 1)(random)];
    return text;
}

TEST(AddressText, leading_zeros_go) {
    EXPECT_EQ(adjusted("010.001.000.255:0080"), "10.1.0.255:80");
    EXPECT_EQ(adjusted("192.168.001.010"), "192.168.1.10");
    EXPECT_EQ(adjusted("1.02.003.0:0"), "1.2.3.0:0");
}

TEST(AddressText, what_is_canonical_stays) {
    EXPECT_EQ(adjusted("0.0.0.0:80"), "0.0.0.0:80");
    EXPECT_EQ(adjusted("10.20.30.40:8080"), "10.20.30.40:8080");
}

TEST(AddressText, empty_groups_become_0) {
    EXPECT_EQ(adjusted("..."), "0.0.0.0");
    EXPECT_EQ(adjusted(""), "0");
    EXPECT_EQ(adjusted("1.2.3.4:"), "1.2.3.4:0");
    EXPECT_EQ(adjusted(":"), "0:0");
}

TEST(AddressText, what_precedes_the_first_digit_of_a_group_is_lost) {
    EXPECT_EQ(adjusted("abc.def:8080"), "0.0:8080");
    EXPECT_EQ(adjusted("a1b0.x"), "1b0.0");
}

TEST(AddressText, a_field_without_an_end_is_processed_up_to_63_characters) {
    EXPECT_EQ(adjusted(std::string(kField, '7')), std::string(63, '7'));
    std::string ends_in_zeros(kField, '0');
    ends_in_zeros.replace(0, 62, 62, '7');
    EXPECT_EQ(adjusted(ends_in_zeros), ends_in_zeros.substr(0, 63));
    // The end of the field is not the end of a group: no 0 is added.
    std::string all_zeros(kField, '0');
    all_zeros.replace(0, 2, "1.");
    EXPECT_EQ(adjusted(all_zeros), "1.");
}

TEST(AddressText, growth_stops_at_the_end_of_the_field) {
    std::string longest;
    while (longest.size() < 62)
        longest += "0.";
    EXPECT_EQ(adjusted(std::string(63, '.')), longest + "0");
    EXPECT_EQ(adjusted(std::string(40, ':')).size(), 63u);
    EXPECT_EQ(adjusted(std::string(31, '.')), longest + "0");
}

TEST(AddressText, both_forms_are_traced) {
    adjusted("010.0.0.1:0080");
    EXPECT_TRUE(trace::contains_in_order(
        {"Original ip string = 010.0.0.1:0080\n", "Modified ip string = 10.0.0.1:80\n"}));
    EXPECT_EQ(trace::find("Modified ip string = 10.0.0.1:80\n").mask, trace::kNormal);
    EXPECT_EQ(trace::find("Modified ip string = 10.0.0.1:80\n").file,
              "data-networking/client/PM/src/NetPMUtil");
}

TEST(AddressText, an_unended_field_is_traced_no_further_than_its_end) {
    adjusted(std::string(kField, '7'));
    EXPECT_TRUE(trace::contains("Original ip string = " + std::string(64, '7') + "\n"));
}

TEST(AddressTextProperty, adjusting_twice_is_adjusting_once_while_the_text_fits) {
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random_text(random, "0123456789.:a", 31);
        const std::string once = adjusted(text);
        ASSERT_EQ(adjusted(once), once) << text;
    }
}

TEST(AddressTextProperty, no_input_leaves_the_field) {
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i)
        adjusted(random_text(random, "0.:1\xff ", kField));  // the guards are checked in there
}

TEST(AddressTextProperty, separators_stay_in_place_and_groups_keep_their_numbers) {
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random_text(random, "00123456789.:", 31);
        std::string expected;
        for (size_t from = 0;;) {
            const size_t end = std::min(text.find_first_of(".:", from), text.size());
            const size_t digit = std::min(text.find_first_not_of('0', from), end);
            expected += digit == end ? "0" : text.substr(digit, end - digit);
            if (end == text.size())
                break;
            expected += text[end];
            from = end + 1;
        }
        ASSERT_EQ(adjusted(text), expected) << text;
    }
}

}  // namespace
}  // namespace quorvel::test
