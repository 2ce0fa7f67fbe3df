// A database that is locked, damaged, or in use by another server.
#include <sqlite3.h>
#include <sys/mount.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "server/RawClient.h"
#include "support/CmServer.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

const std::string kPath = "/tmp/store.db";
const std::vector<std::string> kStoreFile{"--db", kPath};

int32_t add(RawClient& client, const char* name) {
    return ask_pm(client, 1, -1, slot(pdp_profile(name, "apn"))).profile;
}

// Runs the server once, and leaves a profile of this name behind.
int32_t leave(const char* name) {
    CmServer server("", kStoreFile);
    RawClient client;
    const int32_t id = add(client, name);
    EXPECT_EQ(server.stop().status, 0);
    return id;
}

void overwrite(const std::string& path, std::streamoff from) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(from);
    file << std::string(16384, '\x5a');
}

size_t set_aside() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
        count += entry.path().string().starts_with(kPath + ".damaged-2") ? 1 : 0;
    return count;
}

// Whoever else writes to the database at this moment.
class Lock {
  public:
    Lock() {
        EXPECT_EQ(sqlite3_open(kPath.c_str(), &database_), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    }
    ~Lock() { sqlite3_close(database_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    sqlite3* database_ = nullptr;
};

TEST(LockedStore, refuses_at_once_and_stops_nobody) {
    CmServer server("", kStoreFile);
    RawClient writer;
    RawClient other;
    {
        const Lock lock;
        // Were each of these to wait, the other client would give the server up.
        constexpr int kWrites = 40;
        const std::array<uint32_t, 5> words{1, UINT32_MAX, 0, 972, 0};
        std::string payload(reinterpret_cast<const char*>(words.data()), sizeof(words));
        payload += slot(pdp_profile("p", "apn"));
        for (int i = 0; i < kWrites; ++i)
            writer.tell(wire::NETPM_PROFILE_REQ, {}, payload);
        EXPECT_EQ(writer.sync().record().CallId, 117u);
        EXPECT_EQ(other.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
        for (int i = 1; i < kWrites; ++i)
            EXPECT_EQ(writer.sync().record().CallId, 117u);
        server.program().wait_for_err("error: the store fails: " + kPath + ": database is locked");
    }
    EXPECT_GT(add(writer, "after"), 1);
}

TEST(DamagedStore, is_set_aside_and_the_last_good_copy_taken) {
    const int32_t kept = leave("kept");
    overwrite(kPath, 0);
    CmServer server("", kStoreFile);
    server.program().wait_for_err("error: " + kPath + ": file is not a database");
    server.program().wait_for_err(kPath + ": the database is damaged, and is set aside as " + kPath +
                                  ".damaged-2");
    server.program().wait_for_err("the server goes on with the last good copy, " + kPath + ".good");
    RawClient client;
    EXPECT_STREQ(profile_in(ask_pm(client, 4, kept)).ProfileName, "kept");
    EXPECT_EQ(set_aside(), 1u);
}

// Of what is in the copy that the server keeps of its database; -1 without one.
int profiles_in_copy() {
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    int count = -1;
    if (sqlite3_open_v2((kPath + ".good").c_str(), &database, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(database, "SELECT count(*) FROM profile", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        count = sqlite3_column_int(statement, 0);
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return count;
}

TEST(DamagedStore, comes_back_as_it_was_a_while_before_the_server_was_killed) {
    int32_t kept = 0;
    {
        CmServer server("good-copy-after = 1\n", kStoreFile);
        RawClient client;
        add(client, "first");
        kept = add(client, "kept");
        EXPECT_TRUE(eventually([] { return profiles_in_copy() == 3; }));
        server.program().send_signal(SIGKILL);
        server.program().wait();
    }
    overwrite(kPath, 0);
    CmServer server("", kStoreFile);
    RawClient client;
    EXPECT_STREQ(profile_in(ask_pm(client, 4, kept)).ProfileName, "kept");
}

TEST(DamagedStore, does_not_take_the_place_of_its_good_copy) {
    const int32_t kept = leave("kept");
    {
        CmServer server("good-copy-after = 1\n", kStoreFile);
        RawClient client;
        // The server has all of it in its memory, and goes on.
        overwrite(kPath, 8192);
        add(client, "more");
        server.program().wait_for_err("error: the good copy of the database stays as it was: ");
        server.program().send_signal(SIGKILL);
        server.program().wait();
    }
    CmServer server("", kStoreFile);
    server.program().wait_for_err("the server goes on with the last good copy");
    RawClient client;
    EXPECT_STREQ(profile_in(ask_pm(client, 4, kept)).ProfileName, "kept");
}

TEST(GoodCopy, is_renewed_a_while_after_a_change) {
    CmServer server("good-copy-after = 1\nlog-level = \"debug\"\n", kStoreFile);
    RawClient client;
    add(client, "first");
    server.program().wait_for_err("the good copy of the database has been renewed");
    add(client, "second");
    EXPECT_TRUE(eventually([] { return profiles_in_copy() == 3; }));
    EXPECT_EQ(server.stop().status, 0);
}

TEST(GoodCopy, of_a_damaged_store_is_left_as_it_was) {
    leave("kept");
    CmServer server("good-copy-after = 1\n", kStoreFile);
    RawClient client;
    overwrite(kPath, 8192);
    add(client, "more");
    server.program().wait_for_err("error: the good copy of the database stays as it was: ");
    EXPECT_EQ(profiles_in_copy(), 2);
    server.stop();
}

TEST(GoodCopy, that_cannot_be_made_is_missed_and_stops_nobody) {
    ASSERT_TRUE(std::filesystem::create_directories(kPath + ".good/in-the-way"));
    CmServer server("", kStoreFile);
    server.program().wait_for_err("warning: " + kPath + ".good: no good copy can be kept: " + kPath +
                                  ".good: ");
    RawClient client;
    EXPECT_GT(add(client, "served"), 1);
}

TEST(GoodCopy, that_cannot_be_written_is_missed_and_stops_nobody) {
    ASSERT_TRUE(std::filesystem::create_directories(kPath + ".good.new"));
    CmServer server("", kStoreFile);
    server.program().wait_for_err(".good: no good copy can be kept: " + kPath + ".good.new: Is a directory");
    EXPECT_NO_THROW(RawClient());
}

TEST(DamagedStore, that_cannot_be_set_aside_is_left_to_its_owner) {
    leave("kept");
    overwrite(kPath, 0);
    // What something is mounted on cannot be renamed.
    ASSERT_EQ(mount(kPath.c_str(), kPath.c_str(), nullptr, MS_BIND, nullptr), 0);
    const Ended ended = run({CM_SERVER_PATH, "--db", kPath});
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("cm-server: " + kPath + ": the database is damaged, and cannot be set aside: "),
              std::string::npos)
        << ended.err;
    umount2(kPath.c_str(), MNT_DETACH);
}

TEST(DamagedStore, is_noticed_wherever_the_damage_is) {
    const int32_t kept = leave("kept");
    overwrite(kPath, 8192);
    CmServer server("", kStoreFile);
    RawClient client;
    EXPECT_STREQ(profile_in(ask_pm(client, 4, kept)).ProfileName, "kept");
    EXPECT_EQ(set_aside(), 1u);
}

TEST(DamagedStore, without_a_good_copy_begins_anew) {
    leave("lost");
    overwrite(kPath, 0);
    overwrite(kPath + ".good", 0);
    CmServer server("", kStoreFile);
    server.program().wait_for_err("the server begins anew, with the factory's profiles");
    RawClient client;
    EXPECT_EQ(client.ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2, 1u);
    EXPECT_EQ(set_aside(), 1u);
}

TEST(StoreInUse, is_refused_to_a_second_server) {
    CmServer server("", kStoreFile);
    const Ended second = run({CM_SERVER_PATH, "--db", kPath, "--socket", "/tmp/other"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "cm-server: " + kPath + ": another server uses this database\n");
    EXPECT_NO_THROW(RawClient());
}

}  // namespace
}  // namespace quorvel::test
