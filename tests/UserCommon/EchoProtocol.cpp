#include "EchoProtocol.h"

#include <utility>

#include "linux_usercommon/ServiceTable.h"

template <>
const cmn::ServiceTable<EchoProtocol>& cmn::TableOf<EchoProtocol>() {
    static const ServiceTable<EchoProtocol> table(
        kEchoService,
        {Row<&EchoProtocol::version, EchoProtocol>("Version"),
         Row<&EchoProtocol::records>(
             "Records", {.inNames = {"text"}, .slow = true, .mostAnswerBytes = cmn::bus::kLargestMessage}),
         Row<&EchoProtocol::names>("Names"), Row<&EchoProtocol::flags>("Flags"),
         Row<&EchoProtocol::number>("Number", {.inNames = {"text"}}),
         Row<&EchoProtocol::note>("Note", {.inNames = {"text"}, .mostBytes = kMostNoteBytes}),
         Row<&EchoProtocol::check>("Check", {.inNames = {"text", "delegate"}})});
    return table;
}

template <>
const cmn::ServiceTable<EchoDelegate>& cmn::TableOf<EchoDelegate>() {
    static const ServiceTable<EchoDelegate> table(
        "com.example.EchoDelegate", {Row<&EchoDelegate::didCheck>("DidCheck", {.inNames = {"result"}})});
    return table;
}

namespace {

class DelegateProxy : public EchoDelegate {
 public:
    explicit DelegateProxy(cmn::RemoteObject<EchoDelegate> remote) : remote_(std::move(remote)) {}

    void didCheck(bool result) override { remote_.tell<&EchoDelegate::didCheck>(result); }

 private:
    const cmn::RemoteObject<EchoDelegate> remote_;
};

class EchoProxy : public EchoProtocol {
 public:
    explicit EchoProxy(cmn::RemoteObject<EchoProtocol> remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask<&EchoProtocol::version>(std::move(reply));
    }
    void records(const std::string& text, std::function<void(const Records&)> reply) override {
        remote_.ask<&EchoProtocol::records>(std::move(reply), text);
    }
    void names(std::function<void(const std::vector<std::string>&)> reply) override {
        remote_.ask<&EchoProtocol::names>(std::move(reply));
    }
    void flags(std::function<void(const Flags&)> reply) override {
        remote_.ask<&EchoProtocol::flags>(std::move(reply));
    }
    void number(const std::string& text, std::function<void(std::int32_t)> reply) override {
        remote_.ask<&EchoProtocol::number>(std::move(reply), text);
    }
    void note(const std::string& text) override { remote_.tell<&EchoProtocol::note>(text); }
    void check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) override {
        remote_.tell<&EchoProtocol::check>(text, delegate);
    }

 private:
    const cmn::RemoteObject<EchoProtocol> remote_;
};

}  // namespace

template <>
struct cmn::PassedObject<EchoDelegate> {
    // The delegate is held weakly, as a client that is its own delegate wants it.
    static ServiceHandler Handler(const std::shared_ptr<EchoDelegate>& delegate) {
        return TableOf<EchoDelegate>().weakHandler(delegate);
    }
    static std::shared_ptr<EchoDelegate> Proxy(RemoteObject<EchoDelegate> remote) {
        return std::make_shared<DelegateProxy>(std::move(remote));
    }
    static void LogError(const RemoteError& /*error*/) {}
};

std::shared_ptr<const cmn::XPCInterface> CreateEchoInterface() {
    return std::make_shared<cmn::TableInterface<EchoProtocol, EchoProxy>>(kEchoPath);
}
