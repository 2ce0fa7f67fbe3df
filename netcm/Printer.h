// Everything that netcm prints on standard output: one JSON document, as it is or as aligned text.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Json.h"

namespace quorvel::netcm {

enum class Format { kText, kJson };

class Printer {
  public:
    Printer(std::ostream& out, Format format) : out_(out), format_(format) {}

    // A result. Text that is no UTF-8 is text all the same, with \xNN for its strange bytes. As text an
    // object is a line per member with the values aligned, a list of objects a table with a heading, and a
    // list of plain values a line each.
    void result(const Json& document);

    // One of many results, seen at once: a line of JSON, or the text with an empty line between it and the
    // next.
    void record(const Json& document);

    // An event, on a line of its own, seen at once: "time" and "event" first, then the other members by
    // name.
    void event(const Json& event);

  private:
    std::ostream& out_;
    Format format_;
    bool follows_record_ = false;
};

// "dns_servers" as a person reads it: "DNS servers".
std::string label_of(std::string_view key);

// Text of foreign origin with its control characters written as \xNN, so that it cannot steer a terminal; and
// with everything beyond ASCII written so.
std::string printable(std::string_view text);
std::string printable_ascii(std::string_view text);

}  // namespace quorvel::netcm
