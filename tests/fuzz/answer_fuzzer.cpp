// The answer decoder: the input is a received message behind two bytes that choose the query's type and the
// length of the caller's buffer. What was decoded goes through the cache as well.
#include <algorithm>
#include <cerrno>
#include <memory>

#include "Fuzz.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/resolver/Name.h"
#include "dns/src/resolver/Resolver.h"
#include "quorvel/NetDNS.h"

using namespace quorvel;

namespace {

constexpr char kAddress[] = {1, 2, 3, 4};

// Exactly as long as it claims to be, so that a sanitizer sees a byte too many.
struct Buffer {
    explicit Buffer(int length) : bytes(new char[static_cast<size_t>(length)]), size(length) {}
    bool holds(const char* at, size_t length) const {
        return at >= bytes.get() + kHostDataAt && at + length <= bytes.get() + size;
    }
    std::unique_ptr<char[]> bytes;
    int size;
};

bool holds_text(const Buffer& buffer, const char* text) {
    return buffer.holds(text, 1) && buffer.holds(text, strlen(text) + 1);
}

void expect_whole(const hostent& host, const Buffer& buffer) {
    QV_FUZZ_EXPECT(host.h_name == nullptr || holds_text(buffer, host.h_name));
    size_t aliases = 0;
    for (char** alias = host.h_aliases; *alias != nullptr; ++alias, ++aliases)
        QV_FUZZ_EXPECT(holds_text(buffer, *alias));
    size_t addresses = 0;
    for (char** address = host.h_addr_list; *address != nullptr; ++address, ++addresses)
        QV_FUZZ_EXPECT(buffer.holds(*address, kAddressBytes));
    QV_FUZZ_EXPECT(aliases < kHostSlots && addresses < kHostSlots);
}

void expect_cached(hostent& host, int needed) {
    if (host.h_name == nullptr)
        return;
    update_dns_cache(host.h_name, &host, needed, 1000);
    Buffer copy(needed);
    hostent* found = nullptr;
    QV_FUZZ_EXPECT(get_dns_result_fron_cache(host.h_name, copy.bytes.get(), copy.size, &found) == 0);
    expect_whole(*found, copy);
    QV_FUZZ_EXPECT(strcmp(found->h_name, host.h_name) == 0);
    clear_dns_cache();
}

// The needed length, or 0 when the answer cannot be decoded whatever the buffer.
int decode(const Query& query, const Response& response, Name name, int length) {
    Buffer buffer(length);
    uint32_t ttl = 0;
    int needed = 0;
    int herr = 99;
    errno = 0;
    hostent* host = unpack_answer(query, response, name, buffer.bytes.get(), buffer.size, {&ttl, &needed},
                                  ErrorCode(&herr));
    if (host != nullptr) {
        QV_FUZZ_EXPECT(herr == 0 && needed <= length);
        expect_whole(*host, buffer);
        expect_cached(*host, needed);
        return needed;
    }
    QV_FUZZ_EXPECT((errno == ERANGE && herr == -1 && needed > length) || (errno == ENOENT && herr == 1));
    return errno == ERANGE ? needed : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    const Query query{nullptr, nullptr, data[0] % 2 == 0 ? kTypeA : kTypePtr, {kAddress, sizeof kAddress}};
    const int length = static_cast<int>(kHostDataAt) - 20 + 4 * data[1];
    Response response;
    response.length = static_cast<int>(std::min(size - 2, response.bytes.size()));
    // The bytes behind the message are not its: they are as the stack has them.
    std::copy_n(data + 2, response.length, response.bytes.begin());
    const auto id = static_cast<uint16_t>(size < 4 ? 0 : data[2] << 8 | data[3]);
    Name name;
    int herr = 99;
    if (check_response(response, id, name, ErrorCode(&herr)) != 0)
        return 0;
    int needed = decode(query, response, name, length);
    // The name that the question left saves reading it again, and changes nothing.
    QV_FUZZ_EXPECT(decode(query, response, Name(), length) == needed);
    // A buffer of the length that was asked for brings the decoder at least one piece further.
    for (int tried = length; needed > tried;) {
        tried = needed;
        needed = decode(query, response, name, tried);
    }
    return 0;
}
