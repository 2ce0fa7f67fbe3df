#include "Printer.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <vector>

#include "JsonText.h"

namespace quorvel::netcm {
namespace {

constexpr size_t kGap = 2;

bool is_control(unsigned char c) {
    return std::iscntrl(c) != 0;
}

std::string escaped(std::string_view text, bool (*is_strange)(unsigned char)) {
    std::string out;
    for (const char c : text) {
        if (!is_strange(static_cast<unsigned char>(c))) {
            out += c;
            continue;
        }
        std::array<char, 5> digits{};
        std::snprintf(digits.data(), digits.size(), "\\x%02x", static_cast<unsigned char>(c));
        out += digits.data();
    }
    return out;
}

bool is_scalar(const Json& value) {
    return !value.is_structured() || is_hex_object(value);
}

bool is_plain(const Json& value) {
    return is_scalar(value) || (value.is_array() && std::ranges::all_of(value, is_scalar));
}

std::string scalar_text(const Json& value) {
    if (value.is_null()) {
        return "-";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (is_hex_object(value)) {
        return printable_ascii(text_from_json(value).value_or(""));
    }
    return value.is_string() ? printable(value.get_ref<const std::string&>()) : value.dump();
}

std::string plain_text(const Json& value) {
    if (!value.is_array()) {
        return scalar_text(value);
    }
    std::string text;
    for (const Json& item : value) {
        text += (text.empty() ? "" : ", ") + scalar_text(item);
    }
    return text.empty() ? "none" : text;
}

// Places on a line: the continuation bytes of UTF-8 take none.
size_t width_of(std::string_view text) {
    return static_cast<size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, size_t width) {
    return text + std::string(width - std::min(width, width_of(text)), ' ');
}

void write_line(std::ostream& out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

using Row = std::vector<std::string>;

void write_rows(std::ostream& out, const std::vector<Row>& rows, size_t indent) {
    std::vector<size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(row[i]) + kGap);
        }
    }
    for (const Row& row : rows) {
        std::string line(indent, ' ');
        for (size_t i = 0; i < row.size(); ++i) {
            line += padded(row[i], widths[i]);
        }
        write_line(out, line);
    }
}

void write_table(std::ostream& out, const Json& records, size_t indent) {
    std::vector<std::string> keys;
    for (const Json& record : records) {
        for (const auto& member : record.items()) {
            if (std::ranges::find(keys, member.key()) == keys.end()) {
                keys.push_back(member.key());
            }
        }
    }
    std::vector<Row> rows(1);
    std::ranges::transform(keys, std::back_inserter(rows[0]), label_of);
    for (const Json& record : records) {
        Row& row = rows.emplace_back();
        for (const std::string& key : keys) {
            row.push_back(record.contains(key) ? plain_text(record[key]) : "-");
        }
    }
    write_rows(out, rows, indent);
}

void write_text(std::ostream& out, const Json& document, size_t indent);

void write_members(std::ostream& out, const Json& object, size_t indent) {
    std::vector<Row> rows;
    for (const auto& member : object.items()) {
        if (is_plain(member.value())) {
            rows.push_back({label_of(member.key()), plain_text(member.value())});
        }
    }
    write_rows(out, rows, indent);
    for (const auto& member : object.items()) {
        if (!is_plain(member.value())) {
            out << std::string(indent, ' ') << label_of(member.key()) << ":\n";
            write_text(out, member.value(), indent + kGap);
        }
    }
}

void write_text(std::ostream& out, const Json& document, size_t indent) {
    if (document.is_object()) {
        write_members(out, document, indent);
    } else if (!is_plain(document)) {
        write_table(out, document, indent);
    } else if (!document.is_array()) {
        write_line(out, std::string(indent, ' ') + scalar_text(document));
    } else if (document.empty()) {
        write_line(out, std::string(indent, ' ') + plain_text(document));
    } else {
        for (const Json& item : document) {
            write_line(out, std::string(indent, ' ') + scalar_text(item));
        }
    }
}

std::string event_line(const Json& event) {
    constexpr size_t kNameWidth = 15;
    std::string name = event.at("event").get<std::string>();
    std::ranges::replace(name, '_', ' ');
    std::string line = event.at("time").get<std::string>() + "  " + padded(name, kNameWidth);
    for (const auto& member : event.items()) {
        if (member.key() != "event" && member.key() != "time") {
            line += "  " + label_of(member.key()) + " " + plain_text(member.value());
        }
    }
    return line;
}

std::string json_text(const Json& document, int indent) {
    // A name that is no UTF-8 is still shown, its strange bytes replaced.
    return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string shown_word(const std::string& word) {
    constexpr std::array kCapital{"ID",  "IDs", "IP",  "DNS", "APN", "URL",
                                  "QoS", "PSK", "TTL", "EAP", "CA",  "WEP"};
    const auto found = std::ranges::find_if(
        kCapital, [&](const char* capital) { return strcasecmp(capital, word.c_str()) == 0; });
    return found == kCapital.end() ? word : *found;
}

}  // namespace

void Printer::result(const Json& document) {
    if (format_ == Format::kJson) {
        out_ << json_text(document, 2) << '\n';
    } else {
        write_text(out_, document, 0);
    }
    out_.flush();
}

void Printer::record(const Json& document) {
    if (format_ == Format::kJson) {
        out_ << json_text(document, -1) << std::endl;
        return;
    }
    out_ << (follows_record_ ? "\n" : "");
    follows_record_ = true;
    result(document);
}

void Printer::event(const Json& event) {
    out_ << (format_ == Format::kJson ? json_text(event, -1) : event_line(event)) << std::endl;
}

std::string label_of(std::string_view key) {
    std::string label;
    for (size_t start = 0; start < key.size();) {
        const size_t end = std::min(key.find('_', start), key.size());
        label += (label.empty() ? "" : " ") + shown_word(std::string(key.substr(start, end - start)));
        start = end + 1;
    }
    return label;
}

std::string printable(std::string_view text) {
    return escaped(text, is_control);
}

std::string printable_ascii(std::string_view text) {
    return escaped(text, [](unsigned char c) { return c >= 0x80 || is_control(c); });
}

}  // namespace quorvel::netcm
