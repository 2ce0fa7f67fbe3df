// Arguments that operations on the profile store do not take.
#include <functional>
#include <ostream>

#include "library/pm/pm_test.h"
#include "library/pm/profiles.h"

namespace quorvel::test {
namespace {

struct BadCall {
    std::string name;
    std::function<uint32_t()> call;
    std::string message;
};

void PrintTo(const BadCall& bad, std::ostream* out) {
    *out << bad.name;
}

NetPMProfile profile;
int32_t number = -7;
int32_t ids[4];
uint16_t half;
uint32_t word;
std::byte room[NETPM_LIST_ROOM];

NetPMProfile* pdp_with_protocol(uint32_t protocol, uint32_t type = NETPM_PROFILE_PDP) {
    profile = pdp_profile();
    profile.ProfileType = type;
    profile.PdpProfInfo.AppProtoType = protocol;
    return &profile;
}

constexpr char kParameter[] = "Invalid input parameter\n";
constexpr char kParameters[] = "Invalid input parameters\n";
constexpr char kProtocol[] = "PDP Application protocol type is wrong \n";

const BadCall kBadCalls[] = {
    {"add_null_profile", [] { return NetPMAddProfileInfo(nullptr, &number); }, kParameter},
    {"add_null_id", [] { return NetPMAddProfileInfo(&profile, nullptr); }, kParameter},
    {"add_protocol_0", [] { return NetPMAddProfileInfo(pdp_with_protocol(0), &number); }, kProtocol},
    {"add_protocol_3", [] { return NetPMAddProfileInfo(pdp_with_protocol(3), &number); }, kProtocol},
    {"add_protocol_5", [] { return NetPMAddProfileInfo(pdp_with_protocol(5), &number); }, kProtocol},
    {"add_protocol_3_of_unknown_type", [] { return NetPMAddProfileInfo(pdp_with_protocol(3, 2), &number); },
     kProtocol},
    {"modify_id_0", [] { return NetPMModifyProfileInfo(0, pdp_with_protocol(1)); }, kParameter},
    {"modify_null_profile", [] { return NetPMModifyProfileInfo(1, nullptr); }, kParameter},
    {"modify_protocol_3", [] { return NetPMModifyProfileInfo(1, pdp_with_protocol(3)); }, kProtocol},
    {"delete_id_0", [] { return NetPMDeleteProfileInfo(0); }, "Invalid profile ID [0]\n"},
    {"delete_negative_id", [] { return NetPMDeleteProfileInfo(-5); }, "Invalid profile ID [-5]\n"},
    {"get_id_0", [] { return NetPMGetProfileInfo(0, &profile); }, kParameter},
    {"get_null", [] { return NetPMGetProfileInfo(1, nullptr); }, kParameter},
    {"status_id_0", [] { return NetPMGetProfileStatus(0, &half); }, kParameters},
    {"status_null", [] { return NetPMGetProfileStatus(1, nullptr); }, kParameters},
    {"default_null", [] { return NetPMGetDefaultProfileInfo(nullptr); }, "Invalid ProfInfo pointer\n"},
    {"default_id_null", [] { return NetPMGetDefaultProfileId(nullptr); }, "Invalid profile ID pointer\n"},
    {"set_default_id_0", [] { return NetPMSetDefaultProfileId(0); }, "Invalid profile ID [0]\n"},
    {"set_default_negative_id", [] { return NetPMSetDefaultProfileId(-1); }, "Invalid profile ID [-1]\n"},
    {"list_null_ids", [] { return NetPMGetProfileIdList(0, 4, nullptr, &number); }, kParameters},
    {"list_null_count", [] { return NetPMGetProfileIdList(0, 4, ids, nullptr); }, kParameters},
    {"list_no_room", [] { return NetPMGetProfileIdList(0, 0, ids, &number); }, kParameters},
    {"list_type_3", [] { return NetPMGetProfileIdList(3, 10, ids, &number); }, "Invalid Profile type [3]\n"},
    {"attributes_id_0", [] { return NetPMGetProfileAttributes(0, &word); }, kParameters},
    {"attributes_null", [] { return NetPMGetProfileAttributes(1, nullptr); }, kParameters},
    {"partial_null_room", [] { return NetPMReadPartialProfileInfo(0, nullptr, &number); }, kParameter},
    {"partial_null_count", [] { return NetPMReadPartialProfileInfo(0, room, nullptr); }, kParameter},
    {"by_apn_null_apn", [] { return NetPMGetProfileIdForAPN(nullptr, room); }, kParameter},
    {"by_apn_null_room", [] { return NetPMGetProfileIdForAPN("x", nullptr); }, kParameter},
    {"by_apn_empty", [] { return NetPMGetProfileIdForAPN("", room); }, "Invalid APN parameter\n"},
    {"find_null_key", [] { return NetPMGetFindProfileIds(0, nullptr, room); }, kParameter},
    {"find_null_room", [] { return NetPMGetFindProfileIds(0, "x", nullptr); }, kParameter},
    {"find_empty", [] { return NetPMGetFindProfileIds(1, "", room); }, "Invalid APN/ESSID parameter\n"},
    {"find_interface_2", [] { return NetPMGetFindProfileIds(2, "x", room); },
     "Invalid input parameter. NetIface = 2 \n"},
};

class EveryBadArgument : public PmTest, public testing::WithParamInterface<BadCall> {};

TEST_P(EveryBadArgument, is_refused_with_19_and_a_message_and_never_reaches_the_server) {
    EXPECT_EQ(GetParam().call(), 19u);
    EXPECT_EQ(trace::texts(), std::vector<std::string>{GetParam().message});
    EXPECT_EQ(trace::lines().front().mask, trace::kCaller);
    EXPECT_EQ(trace::lines().front().file, "data-networking/client/PM/src/NetPMIntf");
    EXPECT_EQ(server.count(wire::NETPM_PROFILE_REQ), 0u);
    EXPECT_EQ(number, -7);
}

INSTANTIATE_TEST_SUITE_P(Store, EveryBadArgument, testing::ValuesIn(kBadCalls), name_of<BadCall>);

TEST(BadArgument, is_refused_before_the_registration_is_looked_at) {
    EXPECT_EQ(NetPMDeleteProfileInfo(0), 19u);
    EXPECT_FALSE(trace::contains("Cleint is not registered with CM\n"));
}

}  // namespace
}  // namespace quorvel::test
