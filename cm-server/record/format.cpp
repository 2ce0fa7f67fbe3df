#include "record/format.h"

#include <string_view>
#include <vector>

#include "monitor/decode.h"
#include "monitor/passing.h"
#include "record/pcapng.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

class JsonLines : public RecordFormat {
  public:
    explicit JsonLines(bool with_fields) : with_fields_(with_fields) {}

    std::string opening(const json& begin) override { return to_line(begin) + "\n"; }
    std::string entry(const Passing& passing) override {
        std::string line;
        append_line(line, passing);
        if (!with_fields_ || passing.kind == PassingKind::kNote)
            return line;
        // Behind the bytes, which may be many: they are not read again for it.
        std::vector<std::byte> bytes(passing.head.begin(), passing.head.end());
        bytes.insert(bytes.end(), passing.rest.begin(), passing.rest.end());
        const json fields = decoded(to_text(passing.kind), bytes).at("fields");
        line.insert(line.size() - std::string_view("}\n").size(), ",\"fields\":" + to_line(fields));
        return line;
    }

  private:
    bool with_fields_;
};

}  // namespace

std::unique_ptr<RecordFormat> make_format(const std::string& file, bool with_fields) {
    if (file.ends_with(".pcapng"))
        return std::make_unique<Pcapng>();
    return std::make_unique<JsonLines>(with_fields);
}

}  // namespace quorvel::cm
