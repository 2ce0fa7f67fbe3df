// Profiles, the default ones, applications and the payment setting, kept in a database.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "profile.h"
#include "protocol/pm_errors.h"
#include "quorvel/NetPM.h"
#include "store/database.h"
#include "store/factory.h"
#include "store/lock.h"

namespace quorvel::cm {

// The request is refused.
class PmRefusal : public std::runtime_error {
  public:
    explicit PmRefusal(PmError why) : std::runtime_error(find_pm_error(why)->text), error(why) {}
    PmError error;
};

struct PaymentSetting {
    uint32_t csc;
    uint32_t payment;
};

// An interface that so many profiles of a kind lead to by themselves.
struct NamedInterface {
    NetIface kind;
    std::string name;
    int count;
};

// Told after a change that is in the database.
class StoreObserver {
  public:
    // So many more profiles, or fewer, of the kind name this interface.
    virtual void on_interface(NetIface kind, const std::string& name, int more) = 0;
    // All profiles are others.
    virtual void on_restored() = 0;

  protected:
    ~StoreObserver() = default;
};

// Told when something changes, by what must not use the store.
class StoreChanges {
  public:
    virtual void on_change() = 0;

  protected:
    ~StoreChanges() = default;
};

// Throws PmRefusal for what a client asks in vain, and DatabaseError when the database fails.
class Store {
  public:
    // An empty database gets the factory profiles, a damaged one makes room for its good copy.
    Store(const std::string& path, std::vector<FactoryProfile> factory);
    // Keeps the good copy.
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Both check the record; the id in it does not count.
    int32_t add(const NetPMProfile& profile, uid_t owner);
    void modify(int32_t id, const NetPMProfile& profile);
    void remove(int32_t id);
    NetPMProfile read(int32_t id);
    // All profiles go, the factory's come back with their ids, and the first of a type or the one that says
    // so is the default.
    void restore();

    // How many profiles are there that this user has added.
    size_t count_of(uid_t owner);

    // In the order of their ids; nothing for the type means all.
    std::vector<int32_t> ids(std::optional<NetPMProfileType> type, size_t most);
    // Whose APN or network name is the key.
    std::vector<int32_t> find(NetPMProfileType type, const std::string& key, size_t most);

    // The default of a type. Without a type: of packet data, or else of Wi-Fi.
    std::optional<int32_t> default_id(std::optional<NetPMProfileType> type = std::nullopt);
    void set_default(int32_t id);

    void add_application(uint32_t id);
    void remove_application(uint32_t id);
    std::optional<NetPMAppProf> application(uint32_t id);
    void set_application(const NetPMAppProf& application);
    // The profile that the application is to use: its own, or the default of the interfaces that it may use.
    int32_t proper_profile(uint32_t application);
    void set_payment(uint32_t csc, uint32_t payment);
    // Nothing before the first setting.
    std::optional<PaymentSetting> payment();

    // What a connection needs of a profile; nothing when there is no such profile.
    std::optional<Profile> connection(int32_t id);
    std::vector<NamedInterface> named_interfaces();
    // What restoring brings back from here on.
    void use(std::vector<FactoryProfile> factory) { factory_ = std::move(factory); }
    // Those among what restoring brings back that are not here as they would be then: 2 "mobile".
    std::vector<std::string> differing();
    void watch(StoreObserver* observer) { observer_ = observer; }
    // Nobody is told of a store in memory, which has no file to care for.
    void watch_changes(StoreChanges* changes) { changes_ = path_ == kInMemory ? nullptr : changes; }
    const std::string& path() const { return path_; }

  private:
    void write(int32_t id, const NetPMProfile& profile);
    void write_part(int32_t id, const NetPMProfile& profile, const char* table);
    void write_rest(int32_t id, const NetPMProfile& profile);
    void read_part(int32_t id, NetPMProfile& profile, const char* table);
    bool is_as(int32_t id, const FactoryProfile& profile);
    void make_default(int32_t id, uint32_t type);
    void tell(const std::optional<Profile>& before, const std::optional<Profile>& after) const;

    std::string path_;
    StoreLock lock_;
    Database database_;
    std::vector<FactoryProfile> factory_;
    StoreObserver* observer_ = nullptr;
    StoreChanges* changes_ = nullptr;
};

// The file that holds the store when none is named: below the user's state directory, which is made.
std::string default_store_path();

}  // namespace quorvel::cm
