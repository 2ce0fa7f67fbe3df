// The files of a record: the newest under its name, what came before as NAME.1, NAME.2 and so on. They are
// their owner's alone, hold whole entries only, and say what is missing between them.
#pragma once

#include <sys/types.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "record/format.h"
#include "record/plan.h"

namespace quorvel::cm {

class RecordFile {
  public:
    enum class News { kTrouble, kGoesOn, kNewPart };
    using Tell = std::function<void(News news, const std::string& text)>;

    // Whatever is there under the name steps aside. Throws RecordError.
    RecordFile(RecordPlan plan, bool with_fields, Tell tell);
    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    // Kept in memory until there is enough of it, or until flush().
    void add(const Passing& passing);
    void flush();
    // Of those that could not be written.
    uint64_t lost_in_all() const { return lost_in_all_; }

  private:
    struct Range {
        uint64_t count = 0;
        uint64_t first = 0;
        uint64_t last = 0;
        void add(uint64_t number);
    };
    struct Waiting {
        size_t end;  // in what waits
        uint64_t number;
    };

    std::string part_name(size_t index) const;
    void make_room();
    void drop_oldest(size_t index);
    void count_dropped(const Range& gone);
    void shift();
    bool still_there() const;
    void leave_what_has_been_taken();
    bool open_part();
    void new_part();
    nlohmann::json begin_note() const;
    void put_waiting();
    void lose(uint64_t number, int error);
    bool put_loss();
    // How much of it has been written: whole entries, which end where `ends` says.
    size_t put(const std::string& bytes, const std::vector<Waiting>& ends, int& error);

    RecordPlan plan_;
    Tell tell_;
    std::unique_ptr<RecordFormat> format_;
    std::string id_;
    int fd_ = -1;
    size_t part_ = 0;
    uint64_t part_limit_;
    uint64_t written_ = 0;  // of the part
    uint64_t opening_size_ = 0;
    std::string waiting_;
    std::vector<Waiting> ends_;
    Range in_part_;
    std::deque<Range> parts_;  // the ones of this record before, oldest first
    Range dropped_;
    size_t dropped_parts_ = 0;
    size_t dropped_before_ = 0;  // files of earlier records
    Range lost_;
    int lost_error_ = 0;
    uint64_t lost_in_all_ = 0;
};

}  // namespace quorvel::cm
