#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <QLibraryInfo>
#include <array>
#include <cstdint>

#include "../AtspiApplication.h"
#include "../AtspiDesktop.h"
#include "AgentProgram.h"

// The agent as a process in sessions whose display it cannot use: it shows nothing, says so, and watches.

namespace {

// Where a compositor of Wayland would listen.
class CompositorSocket {
 public:
    enum class Clients { areAnswered, areTurnedAway, waitForEver };

    CompositorSocket(const std::string& path, Clients clients)
        : clients_(clients), descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(descriptor_, 5), 0);
        server_ = std::thread([this] { serve(); });
    }
    ~CompositorSocket() {
        ::shutdown(descriptor_, SHUT_RDWR);
        server_.join();
        for (const int client : accepted_) {
            ::close(client);
        }
        ::close(descriptor_);
    }
    CompositorSocket(const CompositorSocket&) = delete;
    CompositorSocket& operator=(const CompositorSocket&) = delete;

 private:
    void serve() {
        for (int client = 0; (client = ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            std::array<std::uint32_t, 3> question{};
            if (clients_ == Clients::areAnswered &&
                ::recv(client, question.data(), sizeof question, MSG_WAITALL) == sizeof question) {
                // "Done", from the object that the question has made.
                const std::array<std::uint32_t, 3> done{question[2], 12U << 16U, 1};
                ::send(client, done.data(), sizeof done, MSG_NOSIGNAL);
            }
            if (clients_ == Clients::areTurnedAway) {
                ::close(client);
            } else {
                accepted_.push_back(client);
            }
        }
    }

    const Clients clients_;
    const int descriptor_;
    std::vector<int> accepted_;
    std::thread server_;
};

class AgentDisplayTest : public AgentProgramTest {
 protected:
    AgentDisplayTest() {
        browser.change(fake::AtspiApplication::kRoot, [](fake::AtspiNode& root) { root.name = "Firefox"; });
        browser.addWindow("Page", "http://start.example/");
        desktop.registerApplication(browser.busName());
        environment["DBUS_SESSION_BUS_ADDRESS"] = desktop.sessionBus.address();
    }

    // The agent finds the browser's address, says `why` nothing is shown, once, and ends in order.
    void expectWatchingOnly(const std::string& why) {
        const auto agent = start();
        ASSERT_TRUE(WaitUntil([this] { return logHas("Current URL -- http://start.example/"); }))
            << agent->errors() << testing::PrintToString(log());
        ASSERT_TRUE(WaitUntil([&] { return logHas(why); })) << testing::PrintToString(log());
        End(*agent);
        EXPECT_EQ(countInLog("The agent shows no window"), 1);
    }
    int countInLog(const std::string& text) const {
        const auto lines = log();
        return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        }));
    }
    // The agent's toolkit has all its plug-ins but those for this platform.
    void takePlugins(const std::string& platform) const {
        const std::filesystem::path all(QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString());
        const auto plugins = folder / "plugins";
        std::filesystem::create_directories(plugins / "platforms");
        int left = 0;
        for (const auto& entry : std::filesystem::directory_iterator(all / "platforms")) {
            if (entry.path().filename().string().find(platform) == std::string::npos) {
                std::filesystem::create_symlink(entry.path(),
                                                plugins / "platforms" / entry.path().filename());
                ++left;
            }
        }
        EXPECT_GT(left, 0) << "there are no plug-ins in " << all;
        std::ofstream(program.parent_path() / "qt.conf") << "[Paths]\nPlugins=" << plugins.string() << '\n';
    }

    // An X server for whoever knows a cookie, which the agent does not.
    std::unique_ptr<fake::ChildProcess> lockedXServer() {
        // One entry of an authority file, for any display.
        std::ofstream(folder / "authority", std::ios::binary)
            << std::string("\xFF\xFF\0\0\0\0\0\x12MIT-MAGIC-COOKIE-1\0\x10", 8 + 18 + 2)
            << "0123456789abcdef";
        auto server = std::make_unique<fake::ChildProcess>(std::vector<std::string>{
            "Xvfb", "-displayfd", "1", "-auth", folder / "authority", "-noreset", "-nolisten", "tcp"});
        environment["DISPLAY"] = ":" + server->readLine().value_or("");
        environment["XAUTHORITY"] = folder / "none";
        return server;
    }

    fake::AtspiDesktop desktop;
    fake::AtspiApplication browser{desktop.accessibilityBus.address()};
};

TEST_F(AgentDisplayTest, WithoutADisplayItWatchesAndSaysThatNothingIsShown) {
    expectWatchingOnly("no display answers");
}

TEST_F(AgentDisplayTest, WithoutTheToolkitsPlugInForWaylandItWatchesAndNamesThePackage) {
    const CompositorSocket compositor(home() + "/wayland-9", CompositorSocket::Clients::areAnswered);
    environment["WAYLAND_DISPLAY"] = "wayland-9";
    takePlugins("wayland");
    expectWatchingOnly("Install the package qt6-wayland");
}

TEST_F(AgentDisplayTest, APlatformAskedForInTheEnvironmentThatIsNotThereEndsNothing) {
    const CompositorSocket compositor(home() + "/wayland-9", CompositorSocket::Clients::areAnswered);
    environment["WAYLAND_DISPLAY"] = "wayland-9";
    environment["QT_QPA_PLATFORM"] = "wayland";
    takePlugins("wayland");
    expectWatchingOnly("Install the package qt6-wayland");
}

TEST_F(AgentDisplayTest, ACompositorThatTurnsItAwayEndsNothing) {
    const CompositorSocket compositor(home() + "/wayland-9", CompositorSocket::Clients::areTurnedAway);
    environment["WAYLAND_DISPLAY"] = "wayland-9";
    expectWatchingOnly("no display answers");
}

TEST_F(AgentDisplayTest, ACompositorThatSaysNothingIsGivenUp) {
    const CompositorSocket compositor(home() + "/wayland-9", CompositorSocket::Clients::waitForEver);
    environment["WAYLAND_DISPLAY"] = "wayland-9";
    expectWatchingOnly("no display answers");
}

TEST_F(AgentDisplayTest, AnXServerThatTurnsItAwayEndsNothing) {
    const auto server = lockedXServer();
    expectWatchingOnly("no display answers");
}

TEST_F(AgentDisplayTest, AnXServerThatTurnsItAwayBesideWaylandWithoutThePlugInEndsNothing) {
    const auto server = lockedXServer();
    const CompositorSocket compositor(home() + "/wayland-9", CompositorSocket::Clients::areAnswered);
    environment["WAYLAND_DISPLAY"] = "wayland-9";
    takePlugins("wayland");
    expectWatchingOnly("Install the package qt6-wayland");
}

TEST_F(AgentDisplayTest, ADisplayThatIsAskedToShowNothingIsNoFault) {
    environment["QT_QPA_PLATFORM"] = "offscreen";
    const auto agent = start();
    ASSERT_TRUE(WaitUntil([this] { return logHas("Current URL -- http://start.example/"); }));
    End(*agent);
    EXPECT_FALSE(logHas("The agent shows no window"));
}

}  // namespace
