// One of many clients: asks at random, makes trouble for itself, and checks every answer.
#pragma once

#include <atomic>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>

#include "server/RawClient.h"

namespace quorvel::test {

inline constexpr size_t kCrowd = 64;

// What is known of one client, in memory that all processes share. A killed client's successor takes it over.
struct CrowdPlace {
    int32_t profile = 0;  // its own
    // The linger time that its profile was last asked to have, and the one that the server has taken.
    uint32_t asked = 0;
    uint32_t kept = 0;
    std::atomic<uint32_t> answers = 0;  // that were right
    char failure[512] = {};
};

struct CrowdWorld {
    // How often the server has gone or come: odd while it is away.
    std::atomic<uint32_t> outages = 0;
    std::atomic<bool> over = false;
    std::array<CrowdPlace, kCrowd> places;
};

// Every fourth client is on the same network.
struct CrowdNetwork {
    const char* access_point;
    const char* interface;
    uint32_t refusal;  // the reason with which connections are refused
    uint32_t end;      // the reason with which they end by themselves
};
inline constexpr std::array<CrowdNetwork, 4> kCrowdNetworks{
    {{"link", "lo", 0, 0}, {"slow", "slow0", 0, 0}, {"refusing", "", 5, 0}, {"unsteady", "unsteady0", 0, 6}}};
const char* crowd_config();
NetPMProfile crowd_profile(size_t number);

class CrowdClient {
  public:
    CrowdClient(CrowdWorld& world, size_t number, unsigned seed);

    // Until it is over. Throws when something is not as it has to be.
    void live();

  private:
    void live_once();
    void act();

    void ask_around();
    void tunnel();
    void change_profile();
    void read_profile();
    void bind();
    void open();
    void close();
    void kill();

    void make_trouble();
    void be_answered_late();
    void be_answered_wrongly();
    void be_answered_by_half();
    void be_answered_with_a_wrong_count();
    void not_be_answered();
    void lose_a_socket();
    void talk_nonsense();
    void die_in_mid_sentence();

    uint32_t pick(uint32_t count) { return std::uniform_int_distribution<uint32_t>(0, count - 1)(random_); }
    uint32_t profile() const { return static_cast<uint32_t>(place_.profile); }
    wire::Record ask(uint32_t command, const Arguments& arguments = {});
    void ask_default();
    void control(const nlohmann::json& command);
    void fault(const char* kind, uint32_t value, const char* event);
    // The next event that it waits for; what is done to its connection is checked on the way.
    wire::Record event();
    // The same, or nothing once the connection has ended.
    std::optional<wire::Record> event_until_end();
    uint32_t status_of_an_end() const;
    void note(const wire::Record& event);
    void expect(bool condition, const char* what);

    CrowdWorld& world_;
    CrowdPlace& place_;
    size_t number_;
    const CrowdNetwork& network_;
    std::mt19937 random_;
    std::optional<RawClient> client_;
    std::optional<uint32_t> call_;
};

}  // namespace quorvel::test
