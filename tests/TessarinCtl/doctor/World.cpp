#include "World.h"

#include <unistd.h>

#include <QDBusVariant>
#include <QVariant>

#include "common/fs.h"
#include "filemanagers/FileManagerEntries.h"

namespace ctl {

namespace fs = std::filesystem;

void Write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    cmn::StrToFile(text, file);
}

std::unique_ptr<fake::RawPeer> World::service(const fake::PrivateBus& bus, const std::string& name) {
    auto peer = std::make_unique<fake::RawPeer>(bus.address(),
                                                [](const QDBusMessage& call, QDBusConnection connection) {
                                                    connection.send(call.createReply(QString("1.0")));
                                                });
    EXPECT_TRUE(peer->own(name));
    return peer;
}

std::unique_ptr<fake::RawPeer> World::silent(const fake::PrivateBus& bus, const std::string& name) {
    auto peer = std::make_unique<fake::RawPeer>(
        bus.address(), [](const QDBusMessage& call, const QDBusConnection&) { call.setDelayedReply(true); });
    EXPECT_TRUE(peer->own(name));
    return peer;
}

World::World() : serviceUser(geteuid()) {
    const fs::path project = PROJECT_FOLDER;
    fs::create_directories(program.parent_path());
    fs::copy_file("/bin/true", program);
    fs::create_directories(bundle / "Contents/Resources");
    fs::copy(project / "packaging/file-managers", bundle / "Contents/Resources/file-managers");
    Write(settings, R"({"DeviceUUID": "6f9619ff", "Products": [{"Name": "Agent", "Version": "1.0.0"}]})");
    fs::create_directories(policy.parent_path());
    fs::copy_file(project / "packaging/dbus/com.tessarin.conf", policy);
    fs::create_directories(actions.parent_path());
    fs::copy_file(project / "packaging/polkit/com.tessarin.policy", actions);
    Write(root / "usr/share/dbus-1/services/org.a11y.Bus.service", "");
    Write(folder / "qt/platforms/libqwayland-generic.so", "");
    Write(folder / "qt/platforms/libqxcb.so", "");
    Write(handler, "[Desktop Entry]\nExec=" + program.string() + " %u\n");
    Write(data / "applications/mimeinfo.cache",
          "[MIME Cache]\nx-scheme-handler/tessarin-scheme=com.tessarin.TessarinUserAgent.desktop;\n");
    variables = {{"HOME", home.string()},
                 {"WAYLAND_DISPLAY", "wayland-0"},
                 {"DISPLAY", ":7"},
                 {"XDG_DATA_DIRS", data.string()},
                 {"XDG_CONFIG_DIRS", (folder / "xdg").string()},
                 {"XDG_CURRENT_DESKTOP", "XFCE"}};
    fs::create_directories(home);
    useragent::FileManagerEntries(bundle / "Contents/Resources/file-managers", machine().desktop.folders)
        .install(useragent::FileManager::thunar);
    panel = std::make_unique<fake::RawPeer>(
        desktop.sessionBus.address(), [this](const QDBusMessage& call, QDBusConnection connection) {
            connection.send(call.createReply(QVariant::fromValue(QDBusVariant(hasHost.load()))));
        });
    EXPECT_TRUE(panel->own("org.kde.StatusNotifierWatcher"));
    seen = {{"Firefox", 4711, true}};
}

Machine World::machine() const {
    Machine made;
    made.root = root;
    made.environment = [this](const char* name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    };
    made.desktop.currentDesktop = made.variable("XDG_CURRENT_DESKTOP");
    made.desktop.folders = useragent::XdgFoldersFrom(made.environment);
    made.desktop.hasProgram = [this](const std::string& name) { return programs.contains(name); };
    made.buses = std::make_shared<Buses>(systemAddress, sessionAddress);
    made.bundle = bundle;
    made.userLogs = userLogs;
    made.qtPlugins = {folder / "nowhere", folder / "qt"};
    made.serviceUser = serviceUser;
    made.now = [this] { return now; };
    made.freeSpace = [this](const fs::path&) { return space; };
    made.hasWindowTray = [this] { return windowTray; };
    made.browsersOfAgent = [this](cmn::bus::Deadline) { return ofAgent; };
    made.browsersSeen = [this](cmn::bus::Deadline) { return seen; };
    made.runs = [this](const std::vector<std::string>& command, cmn::bus::Deadline) {
        commands.push_back(command);
        return onRun(command);
    };
    return made;
}

Finding World::run(Finding (*check)(const Machine&, cmn::bus::Deadline),
                   std::chrono::milliseconds deadline) const {
    return check(machine(), cmn::bus::Clock::now() + deadline);
}

}  // namespace ctl
