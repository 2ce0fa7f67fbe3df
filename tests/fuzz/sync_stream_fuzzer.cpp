// Requests and their answers, with every cut and delay: the input is a row of requests, how each is answered,
// and what the library's waits bring. As long as the server answers only what it was asked, an answer is
// never taken for another request's.
#include <cstring>

#include "Fuzz.h"
#include "Link.h"
#include "common/PmWire.h"
#include "quorvel/NetPM.h"

using namespace quorvel;
using fuzz::Link;

namespace {

constexpr int kMostRequests = 12;

wire::Record answer_to(uint32_t command, uint32_t number) {
    wire::Record record{wire::find_command(command)->answer,
                        number,
                        number,
                        number,
                        0,
                        number,
                        number,
                        number,
                        number,
                        number};
    return record;
}

template <class Block>
void send_with(Link& link, uint32_t command, const Block& block) {
    const wire::Record record = answer_to(command, 1);
    link.will_answer(&record, sizeof record);
    link.will_answer(&block, sizeof block);
}

// The answer that a sound server gives to this request, with the request's number in it.
void answer(Link& link, int request, uint32_t number) {
    switch (request) {
        case 0:
        case 1: {
            const wire::Record record = answer_to(request == 0 ? wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ
                                                               : wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ,
                                                  number);
            return link.will_answer(&record, sizeof record);
        }
        case 2: {
            wire::ProfileIdBlock block{};
            block.Count = 1;
            block.ProfileId[0] = static_cast<int32_t>(number);
            return send_with(link, wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, block);
        }
        case 3: {
            wire::ProfileNameBlock block{};
            block.Count = 1;
            memcpy(block.Name[0], &number, sizeof number);
            return send_with(link, wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, block);
        }
        case 4: {
            wire::StatisticsBlock block{};
            block.Counter[5] = number;
            return send_with(link, wire::NETCM_CLIENT_GET_STAT_INFO_REQ, block);
        }
        default: {
            wire::Record record = answer_to(wire::NETPM_PROFILE_REQ, 0);
            const wire::PmResponseBlock words{wire::NETPM_CLIENT_GET_PROFILE_REQ + wire::kPmAnswer,
                                              5,
                                              0,
                                              0,
                                              sizeof(wire::PmProfileSlot),
                                              0};
            memcpy(&record.Word1, &words, sizeof words);
            wire::PmProfileSlot slot{};
            slot.Profile.ProfileAttr = number;
            link.will_answer(&record, sizeof record);
            return link.will_answer(&slot, sizeof slot);
        }
    }
}

// The request's status; the number that its answer brings.
uint32_t ask(int request, uint32_t& number) {
    uint8_t room[1600] = {};
    uint32_t count = 0;
    uint32_t status = 0;
    switch (request) {
        case 0:
            return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &number);
        case 1: {
            int32_t list = 0;
            status = NetCMGetNetIfaceList(&list);
            number = static_cast<uint32_t>(list);
            return status;
        }
        case 2:
        case 3:
            status = request == 2 ? NetCMGetActiveProfileIDs(room, &count)
                                  : NetCMGetActiveProfileNameList(room, &count);
            memcpy(&number, room, sizeof number);
            return status;
        case 4: {
            uint32_t counters[6] = {};
            status = NetCMGetStatInfo(counters);
            number = counters[5];
            return status;
        }
        default: {
            NetPMProfile profile{};
            status = NetPMGetProfileInfo(5, &profile);
            number = profile.ProfileAttr;
            return status;
        }
    }
}

void ignore(NetCMEvent*) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    Link link(Link::Side::Sync, input, ignore);
    bool is_sound = true;
    for (uint32_t number = 1; number <= kMostRequests && !input.empty() && !link.is_over(); ++number) {
        const uint8_t how = input.byte();
        link.forget_answer();
        const int request = how % 6;
        if (how >= 192) {
            // From here on nobody knows what an answer is an answer to.
            const std::vector<uint8_t> garbage = input.bytes(input.byte());
            link.will_send(garbage.data(), garbage.size());
            is_sound = false;
        } else {
            answer(link, request, number);
        }
        uint32_t got = 0;
        const uint32_t status = ask(request, got);
        QV_FUZZ_EXPECT(status != NETCM_SUCCESS || !is_sound || got == number);
        QV_FUZZ_EXPECT(!is_sound || status <= NETCM_ERR_REREGISTER_FAILED);
    }
    return 0;
}
