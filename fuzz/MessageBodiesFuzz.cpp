// Messages of peers, byte for byte as they arrive: through the library that reads the wire, the table of
// objects, the admission and the typed delivery. What reaches an object is UTF-8 and no larger than its
// method allows.
//
// The input: service, method, byte order and whether the method's own signature is announced; then the
// announced signature where it is not, ended by a NUL; then the body.

#include <fuzzer/FuzzedDataProvider.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Admission.h"
#include "Check.h"
#include "ExportedObjects.h"
#include "Wire.h"
#include "common/log.h"
#include "common/utf8.h"
#include "linux_bus/Question.h"
#include "xpccommon/FinderExtensionProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

namespace {

using namespace cmn;

std::size_t delivered;  // bytes of texts that came to an object

void Arrived(const std::string& text) {
    Check(IsValidUtf8(text) && text.find('\0') == std::string::npos);
    delivered += text.size();
}

class Finder final : public FinderExtensionCommunicator {
 public:
    void version(std::function<void(const std::string&)> reply) override { reply("1"); }
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<FinderExtensionDelegate> delegate) override {
        Arrived(path);
        if (delegate) {
            delegate->didCheckEncryptionStatus(true);
        }
    }
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override {
        Arrived(path);
        reply(0);
    }
    void getScanResult(const std::string& path, std::function<void(std::vector<ScanRecord>)> reply) override {
        Arrived(path);
        reply({});
    }
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override { reply({}); }
    void checkFullDiskAccess(std::function<void(bool)> reply) override { reply(true); }
    void getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) override {
        reply({});
    }
    void sendLogMessage(const std::string& message, const std::string& level) override {
        Arrived(message);
        Arrived(level);
    }
};

class Agent final : public UserAgentProtocol {
 public:
    void version(std::function<void(const std::string&)> reply) override { reply("1"); }
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override {
        if (extractor) {
            extractor->getURL("Firefox", [](const std::string& url) { Arrived(url); });
        }
        reply(true);
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t /*pid*/) override {
        Arrived(url);
        Arrived(browser);
    }
};

// The other end. What is asked of it goes nowhere.
class Peer final : public ServiceChannel {
 public:
    void call(ServiceRequest request) override {
        Check(request.path.starts_with('/') && request.method != nullptr);
    }
    bus::ObjectPath exportObject(const std::shared_ptr<const void>& /*object*/,
                                 std::shared_ptr<const ServiceDescription> /*interface*/,
                                 ServiceHandler /*handler*/) override {
        return {};
    }
};

// A peer's end of a socket, and the library's. Anew after what the library does not go on with.
class Line {
 public:
    Line() {
        int ends[2];
        Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
        socket_ = ends[0];
        sd_id128_t id{};
        id.bytes[0] = 1;
        Check(sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, ends[1], ends[1]) >= 0 &&
              sd_bus_set_server(bus, 1, id) >= 0 && sd_bus_set_anonymous(bus, 1) >= 0 &&
              sd_bus_start(bus) >= 0);
        constexpr std::string_view kHello("\0AUTH ANONYMOUS 61\r\nBEGIN\r\n", 27);
        write(kHello);
    }
    ~Line() {
        sd_bus_close_unref(bus);
        close(socket_);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    bool write(std::string_view bytes) {
        return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    // The next message; null when the library gave up.
    sd_bus_message* next() {
        for (int tries = 0; tries < 100; ++tries) {
            sd_bus_message* message = nullptr;
            const int result = sd_bus_process(bus, &message);
            char dropped[4096];
            while (recv(socket_, dropped, sizeof dropped, 0) > 0) {
            }
            if (result < 0 || message != nullptr) {
                return message;
            }
        }
        return nullptr;
    }

    sd_bus* bus = nullptr;

 private:
    int socket_ = -1;
};

void AppendNumber(std::string& bytes, std::uint32_t number, bool isBigEndian) {
    for (unsigned i = 0; i < 4; ++i) {
        bytes += static_cast<char>(number >> (isBigEndian ? 24 - 8 * i : 8 * i));
    }
}

void AppendField(std::string& fields, char code, const char* type, std::string_view value, bool isBigEndian) {
    fields.append((8 - fields.size() % 8) % 8, '\0');
    fields += {code, 1, *type, '\0'};
    if (*type == 'g') {
        fields += static_cast<char>(value.size());
    } else {
        AppendNumber(fields, static_cast<std::uint32_t>(value.size()), isBigEndian);
    }
    fields.append(value);
    fields += '\0';
}

struct Service {
    const char* path;
    std::shared_ptr<const ServiceInterface> interface;
    std::shared_ptr<XPCVersioning> object;
};

const std::vector<Service>& Services() {
    static const std::vector<Service> services = [] {
        std::vector<Service> all;
        for (const auto& interface : {FinderExtensionXPCInterface(), CreateUserAgentInterface()}) {
            all.push_back({nullptr, std::dynamic_pointer_cast<const ServiceInterface>(interface), nullptr});
            all.back().path = all.back().interface->objectPath().c_str();
        }
        all[0].object = std::make_shared<Finder>();
        all[1].object = std::make_shared<Agent>();
        return all;
    }();
    return services;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    SetLogLevel(LogLevel::Silent);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size < 2 || size > 64 * 1024) {
        return 0;
    }
    const Service& service = Services()[data[0] % Services().size()];
    const auto& methods = service.interface->description()->methods;
    const ServiceMethod& method = methods[data[0] / Services().size() % methods.size()];
    const bool isBigEndian = (data[1] & 1U) != 0;
    std::string_view body = AsText(data + 2, size - 2);
    std::string signature = method.in;
    if ((data[1] & 2U) != 0) {
        signature = body.substr(0, std::min<std::size_t>(body.find('\0'), 255));
        body.remove_prefix(std::min(signature.size() + 1, body.size()));
    }

    std::string fields;
    AppendField(fields, 1, "o", service.path, isBigEndian);
    AppendField(fields, 2, "s", service.interface->description()->name, isBigEndian);
    AppendField(fields, 3, "s", method.name, isBigEndian);
    if (!signature.empty()) {
        AppendField(fields, 8, "g", signature, isBigEndian);
    }
    std::string bytes{isBigEndian ? 'B' : 'l', 1, static_cast<char>(data[1] & 4U ? 1 : 0), 1};
    AppendNumber(bytes, static_cast<std::uint32_t>(body.size()), isBigEndian);
    AppendNumber(bytes, 1, isBigEndian);
    AppendNumber(bytes, static_cast<std::uint32_t>(fields.size()), isBigEndian);
    bytes += fields;
    bytes.append((8 - bytes.size() % 8) % 8, '\0');
    bytes += body;

    static std::unique_ptr<Line> line;
    if (!line) {
        line = std::make_unique<Line>();
    }
    sd_bus_message* const raw = line->write(bytes) ? line->next() : nullptr;
    if (raw == nullptr) {
        line.reset();
        return 0;
    }
    {
        const auto wire = std::make_shared<bus::Wire>();
        const bus::Message message(wire, raw);
        ExportedObjects objects;
        objects.add(service.path, {service.object, service.interface->description(),
                                   service.interface->createHandler(service.object)});
        const auto found = objects.find(message);
        Check(!found || found->method == &method);
        Check(static_cast<bool>(found) == (message.signature() == method.in));
        if (found) {
            Admission admission;
            delivered = 0;
            if (const auto place = admission.admit(message, found->method->mostBytes)) {
                found->handler(std::make_shared<Peer>(), *found->method, bus::Question({}, message));
                Check(delivered <= found->method->mostBytes && delivered <= body.size());
            }
        }
    }
    return 0;
}
