#include "record/options.h"

#include <limits>

namespace quorvel::cm {
namespace {

// "500kB", in bytes.
uint64_t size_of(std::string text) {
    std::string why = CLI::AsSizeValue(false)(text);
    const uint64_t size = why.empty() ? std::stoull(text) : 0;
    if (why.empty() && size < kLeastRecordSize)
        why = "a record takes " + std::to_string(kLeastRecordSize / 1024) + "kB at least";
    if (!why.empty())
        throw CLI::ValidationError("--record-size", why);
    return size;
}

}  // namespace

void add_record_options(CLI::App& command, RecordPlan& plan, const char* what) {
    command.add_option("--record", plan.file, what)->type_name("FILE");
    command
        .add_option_function<std::string>(
            "--record-size", [&plan](const std::string& text) { plan.size = size_of(text); },
            "What the files of the record may take together, such as 500kB or 64MB; the oldest makes room")
        ->type_name("SIZE")
        ->default_str("64MB");
    command.add_flag("--record-secrets", plan.secrets,
                     "Record the passwords and keys of profiles, too, which are left out otherwise");
}

}  // namespace quorvel::cm
