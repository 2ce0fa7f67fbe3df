// The stored profiles and the bindings of applications.
#include <array>
#include <cstring>
#include <random>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

NetPMProfileIdList ids_in(const PmAnswer& answer) {
    NetPMProfileIdList list{};
    EXPECT_EQ(answer.data.size(), sizeof(list));
    answer.data.copy(reinterpret_cast<char*>(&list), sizeof(list));
    return list;
}

std::string field(std::string text, size_t size) {
    text.resize(size);
    return text;
}

class ServerStore : public ::testing::Test {
  public:
    int32_t add(const NetPMProfile& profile) {
        const PmAnswer answer = ask_pm(client, 1, -1, slot(profile));
        EXPECT_EQ(answer.code, 101u);
        EXPECT_EQ(answer.error, 0u);
        return answer.profile;
    }
    uint32_t refusal_of(const NetPMProfile& profile) { return ask_pm(client, 1, -1, slot(profile)).error; }
    void expect_kept(NetPMProfile profile) {
        profile.ProfileId = add(profile);
        EXPECT_EQ(ask_pm(client, 4, profile.ProfileId).data, slot(profile));
    }

    CmServer server;
    RawClient client;
};

TEST_F(ServerStore, gives_a_packet_data_profile_back_byte_for_byte) {
    NetPMProfile profile = pdp_profile("full", "internet");
    NetPMPdpProfInfo& pdp = profile.PdpProfInfo;
    profile.ProfileAttr = 0xF0000001U;
    put(pdp.ProxyAddr, "10.1.0.255:80");
    pdp.PrimaryPdpProfileId = -3;
    pdp.BStaticDnsAddr = 1;
    pdp.DnsAddr[1].Ipv4 = 0x01020304;
    pdp.QosInfo.Qos.QosUmts.TrafficClass = 7;
    put(pdp.AuthInfo.Password, "it's \"quoted\"; --");
    put(pdp.HomeURL, std::string(513, 'u'));
    pdp.lingerTime = -1;
    expect_kept(profile);
}

TEST_F(ServerStore, gives_bytes_back_that_no_field_names) {
    NetPMProfile profile = pdp_profile("opaque", "internet");
    profile.Opaque = 0xAABBCCDDU;
    std::memset(profile.PdpProfInfo.Opaque, 0x5A, sizeof(profile.PdpProfInfo.Opaque));
    std::memset(profile.PdpProfInfo.QosInfo.Qos.QosUmts.Opaque, 0xA5, 44);
    std::memset(profile.PdpProfInfo.IpAddr.Opaque, 0x11, 12);
    std::memcpy(profile.PdpProfInfo.Apn + 50, "behind", 6);
    expect_kept(profile);
}

class ServerStoreSecurity : public ServerStore, public ::testing::WithParamInterface<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Mode, ServerStoreSecurity, ::testing::Range(1, 10));

TEST_P(ServerStoreSecurity, gives_a_wifi_profile_back_byte_for_byte) {
    NetPMProfile profile = wlan_profile("wireless", "home");
    NetPMWlanProfInfo& wlan = profile.WlanProfInfo;
    std::minstd_rand random(static_cast<unsigned>(GetParam()));
    for (uint8_t& byte : wlan.security.form.Opaque)
        byte = static_cast<uint8_t>('a' + random() % 26);
    wlan.security.sec_mode = GetParam();
    wlan.security.encrypt_mode = 3;
    switch (GetParam()) {
        case 2:
        case 3:
            for (auto& key : wlan.security.form.wep.wepKey)
                put(key, "wep key");
            wlan.security.form.wep.wepKeyIndex = 3;
            break;
        case 4:
        case 6:
        case 8:
            put(wlan.security.form.psk.pskKey, "a passphrase");
            break;
        case 5:
        case 7:
        case 9:
            put(wlan.security.form.eap.username, "someone");
            put(wlan.security.form.eap.password, "secret");
            put(wlan.security.form.eap.ca_cert_filename, "ca.pem");
            put(wlan.security.form.eap.client_cert_filename, "client.pem");
            put(wlan.security.form.eap.private_key_filename, "key.pem");
            put(wlan.security.form.eap.private_key_passwd, "pass");
            break;
        default:
            break;
    }
    put(wlan.net_info.ifname, "wlan0");
    wlan.net_info.dns_addr[0].Ipv4 = 0x04030201;
    expect_kept(profile);
}

TEST_F(ServerStore, changes_and_deletes_a_profile) {
    NetPMProfile profile = pdp_profile("before", "internet");
    const int32_t id = add(profile);
    put(profile.ProfileName, "after");
    EXPECT_EQ(ask_pm(client, 2, id, slot(profile)).error, 0u);
    EXPECT_STREQ(profile_in(ask_pm(client, 4, id)).ProfileName, "after");
    EXPECT_EQ(ask_pm(client, 3, id).error, 0u);
    EXPECT_EQ(ask_pm(client, 4, id).error, 103u);
    EXPECT_EQ(ask_pm(client, 3, id).error, 103u);
    EXPECT_EQ(ask_pm(client, 2, id, slot(profile)).error, 103u);
}

TEST_F(ServerStore, opens_connections_from_stored_profiles) {
    const int32_t id = add(pdp_profile("stored", "anywhere"));
    EXPECT_EQ(ask_pm(client, 5, id).value, 0u);
    client.open(id);
    EXPECT_EQ(ask_pm(client, 5, id).value, 2u);
    EXPECT_EQ(ask_pm(client, 3, id).error, 105u);
}

TEST_F(ServerStore, is_not_restored_while_a_connection_is_in_use) {
    const int32_t id = add(pdp_profile("stored", "anywhere"));
    const uint32_t call = client.open(id);
    EXPECT_EQ(ask_pm(client, 13).error, 105u);
    EXPECT_EQ(ask_pm(client, 4, id).error, 0u);
    client.stop(call, id);
    EXPECT_EQ(ask_pm(client, 13).error, 0u);
    EXPECT_EQ(ask_pm(client, 4, id).error, 103u);
}

TEST_F(ServerStore, refuses_impossible_records_by_name) {
    NetPMProfile profile = pdp_profile("name", "apn");
    profile.ProfileType = 2;
    EXPECT_EQ(refusal_of(profile), 106u);
    EXPECT_EQ(refusal_of(pdp_profile("", "apn")), 107u);
    profile = pdp_profile("name", "apn");
    std::memset(profile.ProfileName, 'x', sizeof(profile.ProfileName));
    EXPECT_EQ(refusal_of(profile), 108u);
    profile = pdp_profile("name", "apn");
    std::memset(profile.PdpProfInfo.Apn, 'x', sizeof(profile.PdpProfInfo.Apn));
    EXPECT_EQ(refusal_of(profile), 108u);
    profile = pdp_profile("name", "apn");
    profile.PdpProfInfo.AppProtoType = 3;
    EXPECT_EQ(refusal_of(profile), 109u);
    EXPECT_EQ(refusal_of(wlan_profile("name", "")), 110u);
    profile = wlan_profile("name", "essid");
    profile.WlanProfInfo.security.sec_mode = 10;
    EXPECT_EQ(refusal_of(profile), 111u);
    profile.WlanProfInfo.security.sec_mode = 2;
    profile.WlanProfInfo.security.form.wep.wepKeyIndex = 4;
    EXPECT_EQ(refusal_of(profile), 112u);
    EXPECT_EQ(ask_pm(client, 1, -1, "short").error, 101u);
    EXPECT_EQ(ask_pm(client, 1, -1).error, 101u);
    EXPECT_EQ(ask_pm(client, 9).error, 102u);
    EXPECT_EQ(ask_pm(client, 9).code, 109u);
    server.program().wait_for_err("PM_ERR_BAD_KEY_INDEX (112)");
    EXPECT_EQ(ids_in(ask_pm(client, 10, 0, {}, 2, 20)).Count, 1);
}

TEST_F(ServerStore, keeps_a_default_for_each_kind) {
    const int32_t pdp = add(pdp_profile("second", "apn"));
    const int32_t wlan = add(wlan_profile("wireless", "home"));
    EXPECT_EQ(ask_pm(client, 7).profile, 1);
    EXPECT_EQ(ask_pm(client, 8, pdp).error, 0u);
    EXPECT_EQ(ask_pm(client, 8, wlan).error, 0u);
    EXPECT_EQ(ask_pm(client, 7).profile, pdp);
    EXPECT_STREQ(profile_in(ask_pm(client, 6)).ProfileName, "second");
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, static_cast<uint32_t>(pdp));
    ask_pm(client, 3, pdp);
    EXPECT_EQ(ask_pm(client, 7).profile, wlan);
    ask_pm(client, 3, wlan);
    EXPECT_EQ(ask_pm(client, 7).error, 104u);
    EXPECT_EQ(ask_pm(client, 6).error, 104u);
    EXPECT_EQ(ask_pm(client, 8, 99).error, 103u);
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Status, NETCM_ERR_INVALID_PROFILE);
}

TEST_F(ServerStore, lists_and_finds_profiles) {
    const int32_t pdp = add(pdp_profile("second", "internet"));
    const int32_t wlan = add(wlan_profile("wireless", "home"));
    EXPECT_EQ(ids_in(ask_pm(client, 10, 0, {}, 0, 20)).Count, 2);
    const auto wifi = ids_in(ask_pm(client, 10, 0, {}, 1, 20));
    EXPECT_EQ(wifi.Count, 1);
    EXPECT_EQ(wifi.ProfileId[0], wlan);
    EXPECT_EQ(ids_in(ask_pm(client, 10, 0, {}, 2, 20)).Count, 3);
    EXPECT_EQ(ids_in(ask_pm(client, 10, 0, {}, 2, 2)).Count, 2);
    EXPECT_EQ(ask_pm(client, 10, 0, {}, 3, 20).error, 106u);
    EXPECT_EQ(ids_in(ask_pm(client, 16, 0, field("internet", 100))).ProfileId[0], pdp);
    EXPECT_EQ(ids_in(ask_pm(client, 17, 0, field("home", 32), 1)).ProfileId[0], wlan);
    EXPECT_EQ(ids_in(ask_pm(client, 17, 0, field("nothing", 100), 0)).Count, 0);
    EXPECT_EQ(ask_pm(client, 17, 0, field("home", 100), 1).error, 101u);
    const PmAnswer partial = ask_pm(client, 15, 0, {}, 1);
    ASSERT_EQ(partial.data.size(), sizeof(NetPMPartialProfile));
    EXPECT_EQ(partial.profile, 1);
    NetPMPartialProfile entry{};
    partial.data.copy(reinterpret_cast<char*>(&entry), sizeof(entry));
    EXPECT_STREQ(entry.NetworkName, "home");
}

TEST_F(ServerStore, lists_at_most_what_a_block_holds) {
    for (int i = 0; i < 25; ++i)
        add(pdp_profile("profile " + std::to_string(i), "apn"));
    EXPECT_EQ(ids_in(ask_pm(client, 10, 0, {}, 0, 1000)).Count, 20);
    EXPECT_EQ(ids_in(ask_pm(client, 16, 0, field("apn", 100))).Count, 20);
    EXPECT_EQ(ask_pm(client, 15, 0, {}, 0).data.size(), 20 * sizeof(NetPMPartialProfile));
}

TEST_F(ServerStore, restores_the_factory_s_profiles) {
    NetPMProfile changed = profile_in(ask_pm(client, 4, 1));
    put(changed.ProfileName, "changed");
    ask_pm(client, 2, 1, slot(changed));
    const int32_t added = add(pdp_profile("added", "apn"));
    ask_pm(client, 8, added);
    EXPECT_EQ(ask_pm(client, 13).error, 0u);
    EXPECT_STREQ(profile_in(ask_pm(client, 4, 1)).ProfileName, "local");
    EXPECT_EQ(ask_pm(client, 4, added).error, 103u);
    EXPECT_EQ(ask_pm(client, 7).profile, 1);
}

TEST_F(ServerStore, tells_the_attributes_of_a_profile) {
    NetPMProfile profile = pdp_profile("name", "apn");
    profile.ProfileAttr = 0x80000002U;
    EXPECT_EQ(ask_pm(client, 14, add(profile)).value, 0x80000002U);
    EXPECT_EQ(ask_pm(client, 14, 99).error, 103u);
    EXPECT_EQ(ask_pm(client, 5, 99).error, 103u);
}

class ServerApplications : public ServerStore {
  public:
    void send(const AppMessage& message) { send_app(client, message); }
    AppMessage ask(const AppMessage& message) { return ask_app(client, message); }
};

TEST_F(ServerApplications, are_added_once_known_and_deleted_once) {
    EXPECT_EQ(ask({.command = 3, .id = 7}).id, 0u);
    EXPECT_EQ(ask({.command = 1, .id = 7}).result, 0u);
    EXPECT_EQ(ask({.command = 1, .id = 7}).result, 114u);
    EXPECT_EQ(ask({.command = 3, .id = 7}).id, 1u);
    EXPECT_EQ(ask({.command = 2, .id = 7}).result, 0u);
    EXPECT_EQ(ask({.command = 2, .id = 7}).result, 113u);
    EXPECT_EQ(ask({.command = 4, .id = 7}).result, 113u);
    EXPECT_EQ(ask({.command = 6}).result, 102u);
}

TEST_F(ServerApplications, keep_their_binding) {
    ask({.command = 1, .id = 7});
    const AppMessage bound = ask({.command = 5, .id = 7, .param = 7, .profile = 1, .with_profile = 1});
    EXPECT_EQ(bound.profile, 1u);
    ask({.command = 5, .id = 7, .interfaces = {2, 1}, .with_interfaces = 1});
    const AppMessage kept = ask({.command = 4, .id = 7});
    EXPECT_EQ(kept.param, 7u);
    EXPECT_EQ(kept.profile, 1u);
    EXPECT_EQ(kept.interfaces[0], 2u);
    EXPECT_EQ(kept.interfaces[1], 1u);
    EXPECT_EQ(ask({.command = 5, .id = 7, .profile = 99, .with_profile = 1}).result, 103u);
    EXPECT_EQ(ask({.command = 5, .id = 7, .interfaces = {3, 0}, .with_interfaces = 1}).result, 115u);
    EXPECT_EQ(ask({.command = 5, .id = 8}).result, 113u);
}

TEST_F(ServerApplications, are_given_the_proper_profile) {
    const int32_t own = add(pdp_profile("own", "apn"));
    const int32_t wlan = add(wlan_profile("wireless", "home"));
    ask_pm(client, 8, wlan);
    const auto proper = [&] { return ask({.command = 8, .id = 7}).id; };
    EXPECT_EQ(proper(), 1u);
    ask({.command = 1, .id = 7});
    ask({.command = 5, .id = 7, .interfaces = {2, 0}, .with_interfaces = 1});
    EXPECT_EQ(proper(), static_cast<uint32_t>(wlan));
    ask({.command = 5, .id = 7, .profile = static_cast<uint32_t>(own), .with_profile = 1});
    EXPECT_EQ(proper(), static_cast<uint32_t>(own));
    ask_pm(client, 3, own);
    EXPECT_EQ(proper(), static_cast<uint32_t>(wlan));
}

TEST_F(ServerApplications, are_told_when_there_is_no_profile_for_them) {
    EXPECT_EQ(ask_pm(client, 3, 1).error, 0u);
    EXPECT_EQ(ask({.command = 8, .id = 7}).result, 104u);
    send({.command = 9, .id = 7});
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Word6, 0u);
    EXPECT_EQ(event.Status, 104u);
}

TEST_F(ServerStore, has_no_default_of_another_kind) {
    NetPMProfile profile = pdp_profile("changed", "apn");
    const int32_t id = add(profile);
    EXPECT_EQ(ask_pm(client, 8, id).error, 0u);
    EXPECT_EQ(ask_pm(client, 2, id, slot(wlan_profile("changed", "net"))).error, 0u);
    EXPECT_EQ(ask_pm(client, 7).error, 104u);
}

TEST_F(ServerApplications, are_told_the_proper_profile_by_an_event) {
    send({.command = 9, .id = 7});
    const wire::Record event = client.async().record();
    EXPECT_EQ(event.Code, wire::NETCM_CLIENT_PROPER_PROFILE_RSP);
    EXPECT_EQ(event.Word5, 7u);
    EXPECT_EQ(event.Word6, 1u);
    EXPECT_EQ(event.Status, 0u);
    EXPECT_TRUE(client.sync().silent());
}

TEST_F(ServerApplications, share_one_payment_setting) {
    EXPECT_EQ(ctl({"payment"}).out, "no application has made a payment setting\n");
    EXPECT_EQ(ask({.command = 10, .id = UINT32_MAX, .param = 8, .profile = 1}).result, 0u);
    EXPECT_EQ(ask({.command = 10, .id = UINT32_MAX, .param = 7, .profile = 1}).result, 116u);
    EXPECT_EQ(ask({.command = 10, .id = UINT32_MAX, .param = 8, .profile = 2}).result, 116u);
    EXPECT_EQ(ctl({"payment"}).out, "CSC VGR, payment PRE\n");
    EXPECT_EQ(ask({.command = 10, .id = UINT32_MAX, .param = 9, .profile = 0}).result, 0u);
    EXPECT_EQ(ctl({"payment"}).out, "CSC VOD, payment POST\n");
}

}  // namespace
}  // namespace quorvel::test
