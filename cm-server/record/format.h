// How a record is written: JSON lines, or pcapng.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "record/passing.h"

namespace quorvel::cm {

class RecordFormat {
  public:
    virtual ~RecordFormat() = default;
    // What a file begins with.
    virtual std::string opening(const nlohmann::json& begin) = 0;
    virtual std::string entry(const Passing& passing) = 0;
};

// By the name of the file. `with_fields`: lines say the fields, too.
std::unique_ptr<RecordFormat> make_format(const std::string& file, bool with_fields = false);

}  // namespace quorvel::cm
