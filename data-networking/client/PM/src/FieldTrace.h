// One trace line per field of a record. A record's fields stand in a table of rows X(kind, field); the kind
// says how the value is shown. Every format is still a literal, so that the compiler checks it against the
// field.
#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstring>

#include "common/Trace.h"
#include "quorvel/NetPM.h"

namespace quorvel {

// The text of a field, which need not end within the field.
template <size_t N>
class FieldText {
  public:
    explicit FieldText(const char* field) {
        const size_t length = strnlen(field, N);
        memcpy(text_, field, length);
        text_[length] = '\0';
    }
    const char* c_str() const { return text_; }

  private:
    char text_[N + 1];
};
template <size_t N>
FieldText(const char (&field)[N]) -> FieldText<N>;

inline const char* dotted(const NetPMIpAddr& address) {
    return inet_ntoa(in_addr{.s_addr = address.Ipv4});
}

}  // namespace quorvel

#define QV_FIELD_TEXT(before, record, field) \
    QV_TRACE(0, before #field " [%s]\n", ::quorvel::FieldText((record).field).c_str());
#define QV_FIELD_NUMBER(before, record, field) \
    QV_TRACE(0, before #field " [%d]\n", static_cast<int>((record).field));
#define QV_FIELD_ADDRESS(before, record, field) \
    QV_TRACE(0, before #field " [%s]\n", ::quorvel::dotted((record).field));
