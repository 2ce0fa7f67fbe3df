// The cache against a model of it: the input is what is done with it, two bytes for each operation.
#include <arpa/inet.h>

#include <cstring>
#include <list>
#include <string>

#include "Fuzz.h"
#include "Input.h"
#include "dns/src/HostBuilder.h"
#include "quorvel/NetDNS.h"

namespace {

constexpr size_t kPlaces = 10;
constexpr int kNames = 16;
constexpr unsigned kLife = 1000000;

struct Kept {
    int name;
    bool exists;
};

// The one used last is in front.
class Model {
  public:
    Kept* find(int name) {
        for (auto it = kept_.begin(); it != kept_.end(); ++it) {
            if (it->name != name)
                continue;
            kept_.splice(kept_.begin(), kept_, it);
            return &kept_.front();
        }
        return nullptr;
    }
    bool holds(int name) const {
        return std::any_of(kept_.begin(), kept_.end(), [=](const Kept& one) { return one.name == name; });
    }
    void add(int name, bool exists) {
        // What is there is left as it is, and counts as used.
        if (find(name) != nullptr)
            return;
        if (kept_.size() == kPlaces)
            kept_.pop_back();
        kept_.push_front({name, exists});
    }
    void clear() { kept_.clear(); }

  private:
    std::list<Kept> kept_;
};

std::string address_of(int name) {
    return "192.0.2." + std::to_string(name);
}

void add(int name, bool exists) {
    if (!exists)
        return update_dns_cache(address_of(name).c_str(), nullptr, 0, 0);
    alignas(void*) char bytes[1024];
    int needed = 0;
    hostent* host = dnet_gethostbyname_r("127.0.0.1", nullptr, address_of(name).c_str(), bytes, sizeof bytes,
                                         nullptr, nullptr, &needed);
    QV_FUZZ_EXPECT(host != nullptr);
    update_dns_cache(address_of(name).c_str(), host, needed, kLife);
}

void look_up(int name, int length, Model& model) {
    std::vector<char> buffer(static_cast<size_t>(length));
    hostent sentinel;
    hostent* found = &sentinel;
    const int result = get_dns_result_fron_cache(address_of(name).c_str(), buffer.data(), length, &found);
    if (!model.holds(name)) {
        QV_FUZZ_EXPECT(result == 3 && found == &sentinel);
        return;
    }
    // Also one that does not fit has been found, and used.
    const Kept* kept = model.find(name);
    if (result == 3) {
        QV_FUZZ_EXPECT(length < 700);
        return;
    }
    QV_FUZZ_EXPECT(result == 0 && (found != nullptr) == kept->exists);
    in_addr wanted{};
    inet_pton(AF_INET, address_of(name).c_str(), &wanted);
    QV_FUZZ_EXPECT(found == nullptr || memcmp(found->h_addr_list[0], &wanted, sizeof wanted) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    clear_dns_cache();
    Model model;
    for (Input input(data, size); !input.empty();) {
        const uint8_t operation = input.byte();
        const uint8_t argument = input.byte();
        const int name = argument % kNames;
        if (operation % 16 == 15) {
            clear_dns_cache();
            model.clear();
        } else if (operation % 2 == 0) {
            look_up(name, operation % 4 == 0 ? 1024 : 100 + 4 * argument, model);
        } else {
            add(name, operation % 4 == 1);
            model.add(name, operation % 4 == 1);
        }
    }
    clear_dns_cache();
    return 0;
}
