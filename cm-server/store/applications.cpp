// Which profile and which interfaces an application uses, and the payment setting.
#include <algorithm>

#include "common/PmWire.h"
#include "store/store.h"

namespace quorvel::cm {
namespace {

NetPMProfileType type_over(uint32_t interface) {
    return interface == NETCM_IFACE_WIFI ? NETPM_PROFILE_WLAN : NETPM_PROFILE_PDP;
}

}  // namespace

void Store::add_application(uint32_t id) {
    database_.prepare("INSERT OR IGNORE INTO application (id) VALUES (?)").bind(id).run();
    if (database_.changed() == 0)
        throw PmRefusal(PM_ERR_KNOWN_APPLICATION);
}

void Store::remove_application(uint32_t id) {
    database_.prepare("DELETE FROM application WHERE id = ?").bind(id).run();
    if (database_.changed() == 0)
        throw PmRefusal(PM_ERR_UNKNOWN_APPLICATION);
}

std::optional<NetPMAppProf> Store::application(uint32_t id) {
    Statement row =
        database_.prepare("SELECT param, profile, interface0, interface1 FROM application WHERE id = ?");
    if (!row.bind(id).step())
        return std::nullopt;
    const auto word = [&](int column) { return static_cast<uint32_t>(row.number(column)); };
    return NetPMAppProf{id, word(0), word(1), {word(2), word(3)}};
}

void Store::set_application(const NetPMAppProf& application) {
    if (application.ProfileId != 0)
        read(static_cast<int32_t>(application.ProfileId));
    for (const uint32_t interface : application.NetIfaceList)
        if (interface > NETCM_IFACE_WIFI)
            throw PmRefusal(PM_ERR_BAD_INTERFACE);
    Statement update = database_.prepare(
        "UPDATE application SET param = ?, profile = ?, interface0 = ?, interface1 = ? WHERE id = ?");
    update.bind(application.Param);
    application.ProfileId != 0 ? update.bind(application.ProfileId) : update.bind_null();
    update.bind(application.NetIfaceList[0]).bind(application.NetIfaceList[1]).bind(application.AppId).run();
    if (database_.changed() == 0)
        throw PmRefusal(PM_ERR_UNKNOWN_APPLICATION);
}

int32_t Store::proper_profile(uint32_t id) {
    const NetPMAppProf own = application(id).value_or(NetPMAppProf{});
    if (own.ProfileId != 0)
        return static_cast<int32_t>(own.ProfileId);
    for (const uint32_t interface : own.NetIfaceList)
        if (const auto found = interface != 0 ? default_id(type_over(interface)) : std::nullopt)
            return *found;
    const bool anything =
        std::ranges::all_of(own.NetIfaceList, [](uint32_t interface) { return interface == 0; });
    const auto found = anything ? default_id() : std::nullopt;
    if (!found)
        throw PmRefusal(PM_ERR_NO_DEFAULT);
    return *found;
}

void Store::set_payment(uint32_t csc, uint32_t payment) {
    const bool known_csc = csc == wire::kCscVgr || csc == wire::kCscVod;
    if (!known_csc || (payment != wire::kPaymentPre && payment != wire::kPaymentPost))
        throw PmRefusal(PM_ERR_BAD_PAYMENT);
    database_.prepare("INSERT OR REPLACE INTO payment VALUES (0, ?, ?)").bind(csc).bind(payment).run();
}

std::optional<PaymentSetting> Store::payment() {
    Statement row = database_.prepare("SELECT csc, payment FROM payment");
    if (!row.step())
        return std::nullopt;
    return PaymentSetting{static_cast<uint32_t>(row.number(0)), static_cast<uint32_t>(row.number(1))};
}

}  // namespace quorvel::cm
