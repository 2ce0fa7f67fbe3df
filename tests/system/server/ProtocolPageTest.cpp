// The page on the protocol says what the one table of codes says.
#include <fstream>
#include <sstream>

#include "common/Wire.h"
#include "protocol/pm_errors.h"

namespace quorvel::test {
namespace {

std::string page() {
    std::ostringstream text;
    text << std::ifstream(PROTOCOL_PAGE).rdbuf();
    return text.str();
}

void expect_row(const std::string& page, const std::string& start) {
    EXPECT_NE(page.find("\n| " + start + " |"), std::string::npos) << start;
}

TEST(ProtocolPage, names_every_request_and_its_answer) {
    const std::string text = page();
    for (const wire::CommandEntry& entry : wire::kCommands) {
        const std::string row = std::to_string(entry.code) + " | " + entry.name + " | ";
        const std::string answer = entry.answer == 0 ? "none" : std::to_string(entry.answer);
        EXPECT_NE(text.find("\n| " + row + answer), std::string::npos) << row;
    }
}

TEST(ProtocolPage, names_every_answer_and_event) {
    const std::string text = page();
    for (const wire::EventEntry& entry : wire::kEvents)
        expect_row(text, std::to_string(entry.code) + " | " + entry.name);
}

TEST(ProtocolPage, names_every_error_of_the_profile_manager) {
    const std::string text = page();
    for (const cm::PmErrorEntry& entry : cm::kPmErrors)
        expect_row(text, std::to_string(entry.number) + " | " + entry.name + " | " + entry.text);
}

}  // namespace
}  // namespace quorvel::test
