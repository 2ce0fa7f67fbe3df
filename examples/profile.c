/* Adds a packet-data profile, finds it by its access point, prints what the server has stored, and deletes it. */
#include <inttypes.h>
#include <quorvel/NetCM.h>
#include <quorvel/NetPM.h>
#include <stdio.h>
#include <string.h>

static void on_event(NetCMEvent *event) {
    (void)event; /* nothing is opened here */
}

static uint32_t add(int32_t *id) {
    NetPMProfile profile;
    memset(&profile, 0, sizeof profile); /* unused bytes are 0 */
    profile.ProfileType = NETPM_PROFILE_PDP;
    strcpy(profile.ProfileName, "Picture messages");
    strcpy(profile.PdpProfInfo.ProxyAddr, "192.0.2.8:8080");
    strcpy(profile.PdpProfInfo.Apn, "mms.example");
    profile.PdpProfInfo.AppProtoType = 1;
    return NetPMAddProfileInfo(&profile, id);
}

static uint32_t print_profiles_of(const char *apn) {
    union {
        NetPMProfileIdList list;
        uint8_t room[NETPM_LIST_ROOM];
    } found;
    uint32_t status = NetPMGetProfileIdForAPN(apn, &found);
    for (int32_t i = 0; status == NETCM_SUCCESS && i < found.list.Count; i++) {
        NetPMProfile profile;
        status = NetPMGetProfileInfo(found.list.ProfileId[i], &profile);
        if (status == NETCM_SUCCESS)
            printf("profile  %" PRId32 "\nname     %s\nproxy    %s\n", profile.ProfileId, profile.ProfileName,
                   profile.PdpProfInfo.ProxyAddr);
    }
    return status;
}

int main(void) {
    int32_t id = 0;
    if (NetCMClientRegister(on_event) != NETCM_SUCCESS)
        return fprintf(stderr, "no CM server\n"), 1;
    uint32_t status = add(&id);
    if (status == NETCM_SUCCESS) {
        status = print_profiles_of("mms.example");
        NetPMDeleteProfileInfo(id);
    }
    if (status != NETCM_SUCCESS)
        fprintf(stderr, "refused: status %" PRIu32 "\n", status);
    NetCMClientDeRegister();
    return status != NETCM_SUCCESS;
}
