#include "record/options.h"

#include "command-line/Size.h"

namespace quorvel::cm {
namespace {

uint64_t size_of(const std::string& text) {
    const auto size = command_line::bytes_from(text);
    if (!size)
        throw CLI::ValidationError("--record-size",
                                   "\"" + text + "\" is no size; it is a number with kB, MB or GB");
    if (*size < kLeastRecordSize)
        throw CLI::ValidationError(
            "--record-size", "a record takes " + std::to_string(kLeastRecordSize / 1024) + "kB at least");
    return *size;
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
