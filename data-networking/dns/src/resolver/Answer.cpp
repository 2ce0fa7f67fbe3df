// The answer section as a hostent in the caller's buffer.
#include <cerrno>
#include <cstring>

#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/resolver/Cursor.h"
#include "dns/src/resolver/Name.h"
#include "dns/src/resolver/Resolver.h"

namespace quorvel {
namespace {

struct Record {
    uint16_t type;
    uint16_t record_class;
    uint32_t ttl;
    uint16_t length;  // of the data
    int data;         // offset of the data in the message
};

// What the steps of an unpacking share.
struct Unpacking {
    const Query& query;
    std::span<const uint8_t> message;
    HostBuilder host;
    ErrorCode error;
    Name& name;  // the owner of the record in hand, then the name in its data

    void no_room() {
        QV_TRACE(4, "buffer not enough\n");
        error.fail(ERANGE, NETDB_INTERNAL);
    }
    bool stored(bool fits) {
        if (!fits)
            no_room();
        return fits;
    }

    bool unreadable() {
        error.fail(ENOENT, HOST_NOT_FOUND);
        return false;
    }
};

bool read_record(Cursor& at, Name& owner, Record& record) {
    if (!at.name(owner))
        return false;
    const uint8_t* fixed = at.fields<2, 2, 4, 2>();
    if (fixed == nullptr)
        return false;
    record = {u16_at(fixed), u16_at(fixed + 2), u32_at(fixed + 4), u16_at(fixed + 8), at.offset()};
    return at.skip(record.length);
}

void trace_record(const Record& record, const Name& owner) {
    QV_TRACE(2, "< answer section >\n");
    QV_TRACE(2, "name   : %s\n", owner.text());
    QV_TRACE(2, "type   : %u\n", record.type);
    QV_TRACE(2, "class  : %u\n", record.record_class);
    QV_TRACE(2, "ttl    : %u\n", record.ttl);
    QV_TRACE(2, "rdlen  : %d\n", record.length);
}

bool take_address(Unpacking& work, const Record& record) {
    if (!work.host.has_name() && !work.stored(work.host.name(work.name.text())))
        return false;
    const uint8_t* data = work.message.data() + record.data;
    if (!work.stored(work.host.address(data, record.length)))
        return false;
    const auto shown = [&](int index) { return index < record.length ? data[index] : 0; };
    QV_TRACE(2, "rdata  : %d.%d.%d.%d\n", shown(0), shown(1), shown(2), shown(3));
    return true;
}

// The name that the record gives is only traced: the owner of the next address record becomes the host's
// name.
bool take_alias(Unpacking& work, const Record& record) {
    if (!work.stored(work.host.alias(work.name.text())))
        return false;
    if (work.name.read(work.message, record.data) < 0) {
        QV_TRACE(4, "expand_name(CNAME) failed\n");
        return work.unreadable();
    }
    QV_TRACE(2, "rdata  : %s\n", work.name.text());
    return true;
}

bool take_host_of_address(Unpacking& work, const Record& record) {
    if (work.name.read(work.message, record.data) < 0) {
        QV_TRACE(4, "expand_name(PTR) failed\n");
        return work.unreadable();
    }
    if (!work.stored(work.host.name(work.name.text())))
        return false;
    QV_TRACE(2, "rdata  : %s\n", work.name.text());
    return work.stored(work.host.address(work.query.data.data(), kAddressBytes));
}

bool take_record(Unpacking& work, const Record& record) {
    if (record.record_class != kClassIn)
        return true;
    if (work.query.type == kTypePtr)
        return record.type != kTypePtr || work.host.has_name() || take_host_of_address(work, record);
    if (record.type == kTypeA)
        return take_address(work, record);
    return record.type != kTypeCname || take_alias(work, record);
}

bool take_records(Unpacking& work, const Response& response, uint32_t* ttl) {
    if (!work.stored(work.host.begin()))
        return false;
    Cursor at(work.message, response.answer_offset);
    for (int index = 0; index < response.answers; ++index) {
        Record record;
        if (!read_record(at, work.name, record)) {
            QV_TRACE(4, "unpack_answer() failed\n");
            return work.unreadable();
        }
        trace_record(record, work.name);
        if (ttl != nullptr)
            *ttl = record.ttl;
        if (!take_record(work, record))
            return false;
    }
    return true;
}

}  // namespace

hostent* unpack_answer(const Query& query, const Response& response, Name& name, char* buffer, int length,
                       AnswerOut out, ErrorCode error) {
    const auto message = std::span<const uint8_t>(response.bytes).first(static_cast<size_t>(response.length));
    Unpacking work{query, message, HostBuilder(buffer, length), error, name};
    const bool complete = take_records(work, response, out.ttl);
    if (out.needed != nullptr)
        *out.needed = work.host.needed();
    if (!complete) {
        work.host.leave();
        return nullptr;
    }
    error.succeed();
    return work.host.finish();
}

}  // namespace quorvel
