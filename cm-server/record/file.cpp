#include "record/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quorvel::cm {
namespace {

using nlohmann::json;

constexpr size_t kEnoughWaiting = size_t{64} * 1024;
constexpr size_t kMostFiles = 99;
// A file gets a quarter of the room, so that three quarters of it are used at least.
constexpr uint64_t kParts = 4;

std::string with_error(const std::string& path, int error) {
    return path + ": " + std::strerror(error);
}

uint64_t size_of(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? static_cast<uint64_t>(found.st_size) : 0;
}

bool exists(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0;
}

// What is there must be an ordinary file that nobody records to.
void check_place(const std::string& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISREG(found.st_mode))
        throw RecordError(path + ": is there, and is no ordinary file");
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    const bool in_use = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(fd);
    if (in_use)
        throw RecordError(path + ": another program records there");
}

std::string make_id() {
    char text[64];
    std::snprintf(text, sizeof(text), "%llx-%x", static_cast<unsigned long long>(microseconds_now()),
                  static_cast<unsigned>(getpid()));
    return text;
}

}  // namespace

void RecordFile::Range::add(uint64_t number) {
    // What nobody has counted is said again and again.
    if (number == 0)
        return;
    ++count;
    first = first == 0 ? number : first;
    last = number;
}

RecordFile::RecordFile(RecordPlan plan, bool with_fields, Tell tell)
    : plan_(std::move(plan)),
      tell_(std::move(tell)),
      format_(make_format(plan_.file, with_fields)),
      id_(make_id()),
      part_limit_(plan_.size / kParts) {
    check_place(plan_.file);
    shift();
    if (exists(plan_.file))
        throw RecordError(plan_.file + ": is there, and cannot be moved aside: " + std::strerror(errno));
    if (!open_part())
        throw RecordError(with_error(plan_.file, errno));
    if (dropped_before_ > 0)
        tell_(News::kTrouble, plan_.file + ": the oldest of the files that were there has gone to make room");
}

RecordFile::~RecordFile() {
    flush();
    if (lost_.count > 0)
        put_loss();
    if (fd_ >= 0)
        close(fd_);
}

std::string RecordFile::part_name(size_t index) const {
    return index == 0 ? plan_.file : plan_.file + "." + std::to_string(index);
}

// The oldest go until a new part has room beside the others.
void RecordFile::make_room() {
    size_t count = 0;
    uint64_t all = part_limit_;
    for (; exists(part_name(count)); ++count)
        all += size_of(part_name(count));
    // The one before stays, however large it is.
    for (; count > 1 && (all > plan_.size || count >= kMostFiles); --count) {
        all -= size_of(part_name(count - 1));
        drop_oldest(count - 1);
    }
}

void RecordFile::drop_oldest(size_t index) {
    if (unlink(part_name(index).c_str()) != 0)
        return;
    // This record has `parts_` files behind its first; what is older is another record's.
    if (index >= parts_.size() || parts_.empty()) {
        ++dropped_before_;
        return;
    }
    count_dropped(parts_.front());
    parts_.pop_front();
}

void RecordFile::count_dropped(const Range& gone) {
    ++dropped_parts_;
    dropped_.count += gone.count;
    dropped_.first = dropped_.first == 0 ? gone.first : dropped_.first;
    dropped_.last = std::max(dropped_.last, gone.last);
}

// Each file gets the next number, and the name is free.
void RecordFile::shift() {
    make_room();
    size_t count = 0;
    while (exists(part_name(count)))
        ++count;
    for (; count > 0; --count)
        rename(part_name(count - 1).c_str(), part_name(count).c_str());
}

json RecordFile::begin_note() const {
    json note{{"note", "begin"},
              {"format", 1},
              {"record", id_},
              {"part", part_},
              {"secrets", plan_.secrets ? "kept" : "left out"},
              {"byte-order", std::endian::native == std::endian::little ? "little" : "big"}};
    note.update(plan_.about);
    const int64_t now = microseconds_now();
    note["time"] = static_cast<double>(now) / 1000.0;
    if (dropped_parts_ > 0)
        note["dropped"] = {{"files", dropped_parts_},
                           {"count", dropped_.count},
                           {"from", dropped_.first},
                           {"to", dropped_.last}};
    return note;
}

bool RecordFile::open_part() {
    // Made anew, so that nobody has it open, and nobody's permissions are on it.
    fd_ = open(plan_.file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd_ < 0)
        return false;
    (void)fchmod(fd_, 0600);
    (void)flock(fd_, LOCK_EX | LOCK_NB);
    written_ = 0;
    ++part_;
    in_part_ = {};
    const std::string opening = format_->opening(begin_note());
    int error = 0;
    if (put(opening, {}, error) == opening.size()) {
        opening_size_ = opening.size();
        return true;
    }
    // A file without its beginning is none.
    close(std::exchange(fd_, -1));
    unlink(plan_.file.c_str());
    --part_;
    errno = error;
    return false;
}

void RecordFile::new_part() {
    if (fd_ >= 0) {
        // Its own entry comes first: it may be the oldest that has to go.
        parts_.push_back(in_part_);
        close(std::exchange(fd_, -1));
        shift();
    }
    if (open_part())
        tell_(News::kNewPart, "");
}

void RecordFile::add(const Passing& passing) {
    std::string entry;
    if (plan_.secrets || passing.secrets.empty()) {
        Passing plain = passing;
        plain.secrets = {};
        entry = format_->entry(plain);
    } else {
        std::vector<std::byte> bytes(passing.head.begin(), passing.head.end());
        bytes.insert(bytes.end(), passing.rest.begin(), passing.rest.end());
        hide(bytes, passing.secrets);
        Passing hidden = passing;
        hidden.head = bytes;
        hidden.rest = {};
        hidden.secrets = {};
        entry = format_->entry(hidden);
    }
    if (written_ + waiting_.size() > opening_size_ &&
        written_ + waiting_.size() + entry.size() > part_limit_) {
        put_waiting();
        if (written_ > opening_size_ && written_ + entry.size() > part_limit_)
            new_part();
    }
    waiting_ += entry;
    ends_.push_back({waiting_.size(), passing.number});
    if (waiting_.size() >= kEnoughWaiting)
        put_waiting();
}

void RecordFile::flush() {
    put_waiting();
}

void RecordFile::put_waiting() {
    const std::string bytes = std::exchange(waiting_, {});
    const std::vector<Waiting> ends = std::exchange(ends_, {});
    if (ends.empty() && lost_.count == 0)
        return;
    if (fd_ >= 0 && !still_there())
        leave_what_has_been_taken();
    if (fd_ < 0)
        new_part();
    int error = fd_ < 0 ? errno : 0;
    size_t done = 0;
    if (fd_ >= 0 && (lost_.count == 0 || put_loss()))
        done = put(bytes, ends, error);
    else if (error == 0)
        error = lost_error_;
    for (const Waiting& one : ends)
        one.end <= done ? in_part_.add(one.number) : lose(one.number, error);
}

bool RecordFile::still_there() const {
    struct stat ours {};
    struct stat found {};
    return fstat(fd_, &ours) == 0 && lstat(plan_.file.c_str(), &found) == 0 && ours.st_dev == found.st_dev &&
           ours.st_ino == found.st_ino;
}

void RecordFile::leave_what_has_been_taken() {
    close(std::exchange(fd_, -1));
    if (exists(plan_.file))
        shift();
    count_dropped(std::exchange(in_part_, {}));
    tell_(News::kTrouble, plan_.file + ": somebody has taken the file away; another one is begun");
}

// A note of what is missing, where it is missing.
bool RecordFile::put_loss() {
    const Kept note = make_note({{"note", "lost"},
                                 {"count", lost_.count},
                                 {"from", lost_.first},
                                 {"to", lost_.last},
                                 {"why", std::strerror(lost_error_)}});
    const std::string bytes = format_->entry(note.passing());
    int error = 0;
    if (fd_ < 0 || put(bytes, {}, error) != bytes.size())
        return false;
    tell_(News::kGoesOn, plan_.file + ": goes on; " + std::to_string(lost_.count) + " entries are lost");
    lost_ = {};
    return true;
}

void RecordFile::lose(uint64_t number, int error) {
    if (lost_.count == 0)
        tell_(News::kTrouble, with_error(plan_.file, error) + "; entries are lost from number " +
                                  std::to_string(number) + " on");
    lost_.add(number);
    lost_error_ = error;
    ++lost_in_all_;
}

size_t RecordFile::put(const std::string& bytes, const std::vector<Waiting>& ends, int& error) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t now = write(fd_, bytes.data() + done, bytes.size() - done);
        if (now < 0 && errno == EINTR)
            continue;
        if (now <= 0) {
            error = now < 0 ? errno : ENOSPC;
            break;
        }
        done += static_cast<size_t>(now);
    }
    if (done < bytes.size()) {
        size_t whole = 0;
        for (const Waiting& one : ends)
            if (one.end <= done)
                whole = one.end;
        // Nothing stays in part.
        if (whole < done && ftruncate(fd_, static_cast<off_t>(written_ + whole)) == 0)
            (void)lseek(fd_, static_cast<off_t>(written_ + whole), SEEK_SET);
        done = whole;
    }
    written_ += done;
    return done;
}

}  // namespace quorvel::cm
