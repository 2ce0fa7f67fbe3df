// A whole lookup against a server that sends what it likes: the input is its datagrams, each behind two bytes
// of length and one that says how. The socket helpers are this program's own: nothing leaves it.
#include <cerrno>
#include <cstring>

#include "Fuzz.h"
#include "Input.h"
#include "common/Exported.h"
#include "dns/src/HostBuilder.h"
#include "quorvel/NetDNS.h"

namespace {

// What a datagram's first byte says.
enum How : uint8_t { kWithId = 1, kWithQuestion = 2, kSilence = 4, kBroken = 8 };
constexpr int kSocket = 100;

struct Server {
    Input input{nullptr, 0};
    std::vector<uint8_t> query;
    int asked = 0;
} server;

std::vector<uint8_t> next_datagram(uint8_t how) {
    std::vector<uint8_t> datagram = server.input.bytes(server.input.word() % 600);
    if ((how & kWithQuestion) != 0 && datagram.size() >= 12 && server.query.size() > 12)
        datagram.insert(datagram.begin() + 12, server.query.begin() + 12, server.query.end());
    if ((how & kWithId) != 0 && datagram.size() >= 2 && server.query.size() >= 2)
        std::copy_n(server.query.begin(), 2, datagram.begin());
    return datagram;
}

}  // namespace

extern "C" {
int _dns_debug = 0;
}
int* quorvel::exported::dns_debug = &_dns_debug;

extern "C" {

void dns_getenv(void) {}
int dns_socket(int, const char*) {
    return kSocket;
}
int dns_connect(int, const char*, int) {
    return 0;
}
int dns_close(int) {
    return 1;
}
int dns_send(int, const void* buf, int len) {
    const auto* bytes = static_cast<const uint8_t*>(buf);
    server.query.assign(bytes, bytes + len);
    QV_FUZZ_EXPECT(++server.asked <= 2);
    return len;
}
int dns_poll(int, int) {
    if (!server.input.empty())
        return 1;
    errno = EAGAIN;
    return 0;
}
int dns_recv(int, void* buf, int len) {
    const uint8_t how = server.input.byte();
    if ((how & kBroken) != 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    const std::vector<uint8_t> datagram = next_datagram(how);
    const size_t size = std::min(datagram.size(), static_cast<size_t>(len));
    if (size != 0)
        memcpy(buf, datagram.data(), size);
    return static_cast<int>(size);
}

}  // extern "C"

namespace {

void expect_whole(const hostent& host, const char* buffer, int size) {
    const auto holds = [=](const char* at, size_t length) {
        return at >= buffer && at + length <= buffer + size;
    };
    QV_FUZZ_EXPECT(host.h_name == nullptr || holds(host.h_name, strlen(host.h_name) + 1));
    for (char** alias = host.h_aliases; *alias != nullptr; ++alias)
        QV_FUZZ_EXPECT(holds(*alias, strlen(*alias) + 1));
    for (char** address = host.h_addr_list; *address != nullptr; ++address)
        QV_FUZZ_EXPECT(holds(*address, 4));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    server = {Input(data, size), {}, 0};
    const bool by_name = server.input.byte() % 2 == 0;
    const int length = 8 * server.input.byte();
    std::vector<char> buffer(static_cast<size_t>(length));
    int error = 99;
    unsigned life = 0;
    int needed = 0;
    errno = 0;
    const hostent* host = by_name ? dnet_gethostbyname_r("127.0.0.1", "lo", "www.example", buffer.data(),
                                                         length, &error, &life, &needed)
                                  : dnet_gethostbyaddr_r("127.0.0.1", "lo", "\1\2\3\4", 4, AF_INET,
                                                         buffer.data(), length, &error, &life, &needed);
    if (host != nullptr) {
        QV_FUZZ_EXPECT(error == 0 && needed <= length);
        expect_whole(*host, buffer.data(), length);
    } else {
        QV_FUZZ_EXPECT(error >= -1 && error <= 4);
        QV_FUZZ_EXPECT(errno == ERANGE || errno == ENOENT || errno == EAGAIN || errno == EINVAL);
    }
    return 0;
}
