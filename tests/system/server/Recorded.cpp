#include "server/Recorded.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/Program.h"

namespace quorvel::test {

std::string content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<json> lines_of(const std::string& path) {
    std::istringstream text(content(path));
    std::vector<json> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(json::parse(line, nullptr, false));
        EXPECT_TRUE(lines.back().is_object()) << path << ": " << line;
    }
    return lines;
}

size_t files_of(const std::string& path) {
    size_t count = 0;
    while (std::filesystem::exists(count == 0 ? path : path + "." + std::to_string(count)))
        ++count;
    return count;
}

std::vector<json> lines_of_all(const std::string& path) {
    std::vector<json> lines;
    for (size_t i = files_of(path); i-- > 0;) {
        const auto more = lines_of(i == 0 ? path : path + "." + std::to_string(i));
        lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
}

std::vector<json> notes(const std::vector<json>& lines, const std::string& kind) {
    std::vector<json> found;
    for (const json& line : lines)
        if (line.value("note", "") == kind)
            found.push_back(line);
    return found;
}

bool holds(const std::vector<json>& lines, const std::string& direction, const std::string& name) {
    for (const json& line : lines)
        if (line.value("direction", "") == direction && line.value("name", "") == name)
            return true;
    return false;
}

uint64_t expect_whole(const std::vector<json>& lines, uint64_t first) {
    uint64_t expected = first;
    uint64_t lost = 0;
    for (const json& line : lines) {
        if (line.value("note", "") == "lost") {
            EXPECT_EQ(line.at("from").get<uint64_t>(), expected) << line;
            EXPECT_EQ(line.at("count").get<uint64_t>(), line.at("to").get<uint64_t>() - expected + 1) << line;
            expected = line.at("to").get<uint64_t>() + 1;
            lost += line.at("count").get<uint64_t>();
        } else if (const uint64_t number = line.value("number", uint64_t{0}); number > 0) {
            EXPECT_EQ(number, expected) << line;
            expected = number + 1;
        }
    }
    return lost;
}

unsigned mode_of(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 0777U;
}

std::string hex_of(const std::string& data) {
    std::string text;
    char byte[3];
    for (const char c : data) {
        std::snprintf(byte, sizeof(byte), "%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += byte;
    }
    return text;
}

void Made::add(const char* direction, const std::string& bytes, uint32_t client) {
    wait(100);
    lines_ << json{{"time", time_},
                   {"client", client},
                   {"number", ++number_},
                   {"direction", direction},
                   {"bytes", bytes}}
           << "\n";
}

void Made::note(json note) {
    wait(100);
    note["time"] = time_;
    lines_ << note << "\n";
}

void Made::convert(const std::string& to) {
    lines_.close();
    const Ended ended = run({CM_SERVER_PATH, "convert", kPath, to});
    EXPECT_EQ(ended.status, 0) << ended.err;
}

json Made::report() {
    lines_.close();
    const Ended ended = run({CM_SERVER_PATH, "report", kPath, "--html", "/tmp/made.html"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    return story_in("/tmp/made.html");
}

json story_in(const std::string& page) {
    const std::string text = content(page);
    const std::string begin = "const story = ";
    const size_t from = text.find(begin) + begin.size();
    const std::string data = text.substr(from, text.find(";\n", from) - from);
    EXPECT_EQ(data.find('<'), std::string::npos) << "nothing in it ends the script";
    return json::parse(data);
}

}  // namespace quorvel::test
