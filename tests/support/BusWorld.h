#pragma once

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/HurriedDispatch.h"
#include "support/HurriedTransport.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/Recorder.h"
#include "support/WaitFor.h"
#include "usercommon/XPCServer.h"

namespace fake {

// A test with a system bus of its own and a transport on it; the session bus is nowhere. A test that failed
// shows the log.
class BusWorld : public testing::Test {
 protected:
    static constexpr double kHurry = 1.0 / 30;  // the three seconds before a reconnect are a tenth of one
    static constexpr double kPatience = 200;    // a slow machine makes no answer late

    BusWorld() { useTransport(options()); }
    ~BusWorld() override {
        if (HasFailure()) {
            std::cerr << log.text();
        }
        for (const auto& used : transports_) {
            used->stop();  // peers and calls that are left let go of what they hold
        }
        dispatch->stop();
    }

    cmn::DBusXPCOptions options() const {
        cmn::DBusXPCOptions options;
        options.systemBusAddress = bus.address();
        options.sessionBusAddress = "unix:path=/nonexistent/bus";
        options.onListenerEvent = listenerEvents;
        return options;
    }
    // From now on `transport` is one with these options; the one before lives on.
    void useTransport(const cmn::DBusXPCOptions& options) {
        transport = transports_.emplace_back(std::make_shared<cmn::DBusXPCTransport>(dispatch, options));
    }
    // Calls what makes a listener listen, and waits until it does.
    template <typename Start>
    auto awaitListening(Start start) {
        const std::size_t before = listenerEvents.count();
        auto started = start();
        EXPECT_TRUE(WaitFor([&] { return listenerEvents.count() > before; }));
        EXPECT_EQ(listenerEvents.last().state, cmn::DBusListenerState::listening);
        return started;
    }
    template <typename Server>
    std::shared_ptr<Server> start(std::shared_ptr<Server> server) {
        return awaitListening([&] {
            server->start();
            return server;
        });
    }

    // Whose reconnects come sooner, and whose waits are `waits` times as long.
    std::shared_ptr<HurriedDispatch> hurried(double waits = 1) const {
        return std::make_shared<HurriedDispatch>(dispatch, kHurry, waits);
    }
    std::shared_ptr<HurriedTransport> hurriedTransport(double waits) const {
        return std::make_shared<HurriedTransport>(transport, waits);
    }

    LogCapture log;
    PrivateBus bus;
    const Recorder<cmn::DBusListenerEvent> listenerEvents;
    const std::shared_ptr<cmn::LinuxDispatch> dispatch = std::make_shared<cmn::LinuxDispatch>();
    std::shared_ptr<cmn::DBusXPCTransport> transport;

 private:
    std::vector<std::shared_ptr<cmn::DBusXPCTransport>> transports_;
};

}  // namespace fake
