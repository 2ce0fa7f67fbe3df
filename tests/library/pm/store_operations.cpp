#include "library/pm/store_operations.h"

#include "library/pm/profiles.h"

namespace quorvel::test {
namespace {

// Room for the largest answer of all.
struct Room {
    NetPMProfile profile;
    std::byte list[NETPM_LIST_ROOM];
    int32_t ids[NETPM_MAX_PROFILE_IDS];
    int32_t count;
    int32_t id;
    uint16_t status;
    uint32_t attributes;
};
Room room;

Bytes slot_of(const NetPMProfile& profile) {
    return bytes_of(profile) + Bytes(4);
}

Bytes name_field(const std::string& name, size_t size) {
    Bytes field(size);
    memcpy(field.data(), name.data(), name.size());
    return field;
}

wire::PmRequestHeader about(uint32_t command, int32_t profile = 0) {
    wire::PmRequestHeader header = {};
    header.Command = command;
    header.ProfileId = profile;
    return header;
}

wire::PmRequestHeader with(uint32_t command, uint32_t arg, uint32_t data_length, uint32_t arg2 = 0) {
    wire::PmRequestHeader header = about(command);
    header.Arg = arg;
    header.DataLength = data_length;
    header.Arg2 = arg2;
    return header;
}

wire::PmRequestHeader whole_profile(uint32_t command, int32_t profile) {
    wire::PmRequestHeader header = about(command, profile);
    header.DataLength = 972;
    return header;
}

NetPMProfile& given_profile() {
    static NetPMProfile profile;
    profile = pdp_profile();
    return profile;
}

std::vector<StoreOperation> changes() {
    return {
        {"NetPMAddProfileInfo",
         1,
         [] { return NetPMAddProfileInfo(&given_profile(), &room.id); },
         whole_profile(1, -1),
         slot_of(pdp_profile()),
         {},
         "Error modified profile, Error = 4242 \n",
         "Successfully added a new profile, profile id is 77 \n"},
        {"NetPMModifyProfileInfo",
         2,
         [] { return NetPMModifyProfileInfo(kAskedProfile, &given_profile()); },
         whole_profile(2, kAskedProfile),
         slot_of(pdp_profile()),
         {"NetPMAddProfile: NETPM_CLIENT_MODIFY_PROFILE_REQ\n"},
         "Error modifying profile, Error = 4242 \n",
         "Successfully modified the profile, profile id is 77 \n"},
        {"NetPMDeleteProfileInfo",
         3,
         [] { return NetPMDeleteProfileInfo(kAskedProfile); },
         about(3, kAskedProfile),
         {},
         {"NetPMDeleteProfile: NETPM_CLIENT_DELETE_PROFILE_REQ profileID =5\n"},
         "Error Deleting the profile,, Error = 4242 \n",
         "Successfully deleted profile, profile id is 77 \n"},
        {"NetPMSetDefaultProfileId",
         8,
         [] { return NetPMSetDefaultProfileId(kAskedProfile); },
         about(8, kAskedProfile),
         {},
         {"NetPMSetDefaultProfileId: NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ profileID =5\n"},
         "Error = 4242 \n",
         "Successfully Set Default profile ID , profile id is 77 \n"},
        {"NetPMRestoreProfileInfo",
         13,
         [] { return NetPMRestoreProfileInfo(); },
         about(13),
         {},
         {"NetPMRestoreProfileInfo: NETPM_CLIENT_RESTORE_PROFILES_REQ\n"},
         "Error = 4242 \n",
         "Successfully restored profile information\n"},
    };
}

std::vector<StoreOperation> queries() {
    return {
        {"NetPMGetProfileInfo",
         4,
         [] { return NetPMGetProfileInfo(kAskedProfile, &room.profile); },
         about(4, kAskedProfile),
         {},
         {"NetPMGetProfileInfo: NETPM_CLIENT_GET_PROFILE_REQ profileID =5\n"},
         "Error Getting the profile, Error = 4242 \n",
         "Successfully Retrived profile information , profile id is 77 \n"},
        {"NetPMGetProfileStatus",
         5,
         [] { return NetPMGetProfileStatus(kAskedProfile, &room.status); },
         about(5, kAskedProfile),
         {},
         {"NetPMGetProfileAttributes: NETPM_CLIENT_GET_PROFILE_STATUS_REQ\n"},
         "Error = 4242 \n",
         "Successfully Retrived information , profile id is 77 \n"},
        {"NetPMGetDefaultProfileInfo",
         6,
         [] { return NetPMGetDefaultProfileInfo(&room.profile); },
         about(6),
         {},
         {"NetPMGetDefaultProfileInfo: NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ \n"},
         "Error Getting the profile, Error = 4242 \n",
         "Successfully Retrived profile information , profile id is 77 \n"},
        {"NetPMGetDefaultProfileId",
         7,
         [] { return NetPMGetDefaultProfileId(&room.id); },
         about(7),
         {},
         {"NetPMGetDefaultProfileId: NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ\n"},
         "Error = 4242 \n",
         "Successfully Retrived information , profile id is 77 \n"},
        {"NetPMGetProfileAttributes",
         14,
         [] { return NetPMGetProfileAttributes(kAskedProfile, &room.attributes); },
         about(14, kAskedProfile),
         {},
         {"NetPMGetProfileAttributes: NETPM_CLIENT_GET_PROFILE_ATTR_REQ\n"},
         "Error = 4242 \n",
         "Successfully Retrived information , profile id is 77 \n"},
    };
}

std::vector<StoreOperation> lists() {
    return {
        {"NetPMGetProfileIdList",
         10,
         [] { return NetPMGetProfileIdList(2, 9, room.ids, &room.count); },
         with(10, 2, 0, 9),
         {},
         {"NetPMGetProfileIdList: NETPM_CLIENT_GET_POFILE_LIST_REQ\n"},
         "Error = 4242 \n",
         "Successfully Retrived profile ID list information\n"},
        {"NetPMReadPartialProfileInfo",
         15,
         [] { return NetPMReadPartialProfileInfo(1, room.list, &room.count); },
         with(15, 1, 0),
         {},
         {"Request to get PDP Profile parameters list\n",
          "NetPMGetProfileInfo: NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ Profile Type = 1\n"},
         "Error reading profiles, Error = 4242 \n",
         "Successfully read the partial profile param list\n"},
        {"NetPMGetProfileIdForAPN",
         16,
         [] { return NetPMGetProfileIdForAPN("internet", room.list); },
         with(16, 0, 100),
         name_field("internet", 100),
         {"NetPMGetProfileIdList: NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ\n"},
         "Error = 4242 \n",
         "Successfully received profile ID list \n"},
        {"NetPMGetFindProfileIds_by_APN",
         17,
         [] { return NetPMGetFindProfileIds(0, "internet", room.list); },
         with(17, 0, 100),
         name_field("internet", 100),
         {"NetPMGetFindProfileIds: NETPM_CLIENT_FIND_PROFILE_IDS_REQ\n"},
         "Error = 4242 \n",
         "Successfully received profile ID list \n"},
        {"NetPMGetFindProfileIds_by_ESSID",
         17,
         [] { return NetPMGetFindProfileIds(1, "home", room.list); },
         with(17, 1, 32),
         name_field("home", 32),
         {"NetPMGetFindProfileIds: NETPM_CLIENT_FIND_PROFILE_IDS_REQ\n"},
         "Error = 4242 \n",
         "Successfully received profile ID list \n"},
    };
}

}  // namespace

void overwrite_outputs(std::byte with) {
    memset(&room, std::to_integer<int>(with), sizeof room);
}
Bytes outputs() {
    return bytes_of(room);
}
Bytes outputs_with_id(int32_t id, std::byte elsewhere) {
    Bytes expected(sizeof room, elsewhere);
    memcpy(expected.data() + offsetof(Room, id), &id, sizeof id);
    return expected;
}

const std::vector<StoreOperation>& store_operations() {
    static const std::vector<StoreOperation> all = [] {
        std::vector<StoreOperation> operations;
        for (const auto& group : {changes(), queries(), lists()})
            operations.insert(operations.end(), group.begin(), group.end());
        return operations;
    }();
    return all;
}

}  // namespace quorvel::test
