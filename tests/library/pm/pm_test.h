// A registered process and the server that it is registered with, as the tests of the profile manager want
// them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/PM/src/NetPMPrivate.h"
#include "support/AppThread.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Link.h"
#include "support/ScriptedServer.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

// The record that answers a profile command, with the words of the response block behind its code.
inline wire::Record pm_record(const wire::PmResponseBlock& block) {
    wire::Record record = {};
    record.Code = wire::NETPM_PROFILE_RSP;
    memcpy(&record.Word1, &block, sizeof block);
    return record;
}

// The same for an application-profile command.
inline wire::Record app_record(const wire::AppProfMsg& message) {
    wire::Record record = {};
    record.Code = wire::NETCM_CLIENT_PROPER_PROFILE_RSP;
    memcpy(&record.Word1, &message, sizeof message);
    return record;
}

inline Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Bytes filled(size_t size, int first = 1) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::byte>(static_cast<size_t>(first) + i % 200);
    return bytes;
}

// Names the instance of a test after what it is about.
template <class T>
std::string name_of(const testing::TestParamInfo<T>& instance) {
    return instance.param.name;
}

class PmTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(NetCMClientRegister(events::callback_of(0)), 0u);
        // The receiver's last words before it waits: what is traced from now on is the test's own.
        ASSERT_TRUE(trace::wait_for_prefix("clientsocket = "));
        trace::clear();
    }
    void TearDown() override {
        calls::reset();
        EXPECT_EQ(NetCMClientDeRegister(), 0u);
    }

    // Ends the server's side of the link, and waits until the library has noticed.
    void break_link() {
        ASSERT_TRUE(server.wait_for_async_socket());
        server.close_async();
        ASSERT_TRUE(eventually(link_is_broken));
        trace::clear();
    }

    // Lets another thread begin the call, and deregisters the only one that is registered when it is about to
    // take the mutex. What the call gave; the process is registered again behind it.
    uint32_t result_when_overtaken_by_the_last_deregistration(const std::function<uint32_t()>& call) {
        // Both of the link's connections are counted before.
        EXPECT_TRUE(server.wait_for_async_socket());
        AppThread other;
        Gate gate;
        const auto hook = trace::on_line([&, line = trace::text("Thread [%d] trying to lock the Mutex \n",
                                                                other.tid())](const TraceLine& traced) {
            if (traced.text == line)
                gate.pass();
        });
        uint32_t result = 99;
        other.start([&] { result = call(); });
        EXPECT_TRUE(gate.is_somebody_waiting());
        EXPECT_EQ(NetCMClientDeRegister(), 0u);
        const int accepted = server.accepted_connections();
        gate.open();
        other.wait();
        EXPECT_EQ(server.accepted_connections(), accepted) << "the link is brought up again";
        EXPECT_FALSE(trace::contains("CM server connection is broken, Re-Register with CM\n"));
        EXPECT_EQ(NetCMClientRegister(events::callback_of(0)), 0u);
        return result;
    }

    // An answer whose data end early: the server closes when the library has begun to read them, so that it
    // cannot notice before.
    Answer cut_short_data(const wire::Record& record, const Bytes& data) {
        begun_.reset(new Hook(trace::on_line([gate = reading_](const TraceLine& line) {
            if (line.text.starts_with("NetPMReadSyncRsp ::: pRspData->pExtRspData"))
                gate->open();
        })));
        return Answer().record(record).bytes(data).wait_at(reading_).close();
    }

    // The header of the command's last request, and everything behind it.
    wire::RequestHeader last_header(uint32_t command) const { return server.last(command)->header; }
    Bytes last_payload(uint32_t command) const { return server.last(command)->payload; }

    ScriptedServer server;

  private:
    std::shared_ptr<Gate> reading_ = std::make_shared<Gate>();
    std::unique_ptr<Hook<const TraceLine&>> begun_;
};

}  // namespace quorvel::test
