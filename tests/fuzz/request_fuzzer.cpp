// The server's request decoder: the input is what a client sends, behind a byte that says in what pieces it
// arrives.
#include <cstring>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "common/PmWire.h"
#include "monitor/decode.h"
#include "protocol/message.h"
#include "protocol/request.h"

using namespace quorvel::cm;

namespace {

using Bytes = std::span<const std::byte>;

struct Outcome {
    std::vector<std::byte> consumed;  // every request, as it would be sent again
    size_t pending = 0;
    std::string error;

    bool operator==(const Outcome&) const = default;
};

void check(const Request& request) {
    namespace wire = quorvel::wire;
    QV_FUZZ_EXPECT(wire::find_command(request.header.Command) != nullptr);
    if (request.header.Command == wire::NETCM_CLIENT_TUNNEL_REQ) {
        QV_FUZZ_EXPECT(request.payload.size() == request.header.Arg4);
        QV_FUZZ_EXPECT(request.payload.size() <= kMaxTunnelData);
    } else {
        QV_FUZZ_EXPECT(request.payload.size() <= sizeof(wire::PmRequestHeader) + kMaxProfileData);
    }
    // Whoever watches is shown it, whatever is in it.
    const auto shown = decode(request);
    QV_FUZZ_EXPECT(shown.at("name") == wire::find_command(request.header.Command)->name);
    QV_FUZZ_EXPECT(to_line(shown).find('\n') == std::string::npos);
}

void take_requests(RequestReader& reader, Outcome& outcome) {
    while (const auto request = reader.next()) {
        check(*request);
        quorvel::cm::append(outcome.consumed, request->header);
        outcome.consumed.insert(outcome.consumed.end(), request->payload.begin(), request->payload.end());
    }
}

Outcome read(Bytes stream, size_t piece) {
    RequestReader reader;
    Outcome outcome;
    try {
        while (!stream.empty()) {
            const Bytes next = stream.first(std::min(piece, stream.size()));
            // A block of its own, so that a sanitizer sees a byte read past it.
            reader.feed(std::vector<std::byte>(next.begin(), next.end()));
            take_requests(reader, outcome);
            stream = stream.subspan(next.size());
        }
        outcome.pending = reader.pending();
    } catch (const ProtocolError& error) {
        outcome.error = error.what();
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const Bytes stream = std::as_bytes(std::span(data, size)).subspan(1);
    const Outcome whole = read(stream, size);
    QV_FUZZ_EXPECT(whole == read(stream, size_t{1} + data[0]));
    QV_FUZZ_EXPECT(whole.consumed.size() + whole.pending <= stream.size());
    QV_FUZZ_EXPECT(whole.consumed.empty() ||
                   std::memcmp(whole.consumed.data(), stream.data(), whole.consumed.size()) == 0);
    QV_FUZZ_EXPECT(!whole.error.empty() || whole.consumed.size() + whole.pending == stream.size());
    return 0;
}
