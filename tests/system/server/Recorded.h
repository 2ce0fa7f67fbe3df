// What a record holds, read line by line.
#pragma once

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvel::test {

using nlohmann::json;

std::string content(const std::string& path);

// The lines of the file, every one of which must be an object.
std::vector<json> lines_of(const std::string& path);
// The same of all files of a record, the oldest first.
std::vector<json> lines_of_all(const std::string& path);
size_t files_of(const std::string& path);

// Those that are notes of this kind.
std::vector<json> notes(const std::vector<json>& lines, const std::string& kind);
// Whether something with this name went this way.
bool holds(const std::vector<json>& lines, const std::string& direction, const std::string& name);

// Nothing is missing from `first` to the last, but for what notes say is lost, and nothing is there twice.
// Gives how many are lost.
uint64_t expect_whole(const std::vector<json>& lines, uint64_t first);

unsigned mode_of(const std::string& path);

// Bytes as a record has them; and words, in the machine's order.
std::string hex_of(const std::string& data);
template <class... Words>
std::string hex(const Words&... words) {
    std::string text;
    for (const uint32_t word : {static_cast<uint32_t>(words)...})
        text += hex_of({reinterpret_cast<const char*>(&word), sizeof(word)});
    return text;
}

// A record that is written by hand, an entry each tenth of a second.
class Made {
  public:
    static constexpr const char* kPath = "/tmp/made.jsonl";

    void add(const char* direction, const std::string& bytes, uint32_t client = 1);
    void note(json note);
    // The next entry comes so much later.
    void wait(double milliseconds) { time_ += milliseconds; }
    void convert(const std::string& to);
    // What a page that is made of it shows.
    json report();

  private:
    std::ofstream lines_{kPath};
    uint64_t number_ = 0;
    double time_ = 0;
};

// What a page of a report shows.
json story_in(const std::string& page);

}  // namespace quorvel::test
