#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "linux_usercommon/ServiceInterface.h"

// Typed stubs of a protocol from one table: a row a method, whose signatures, proxy's call and delivery
// follow from the C++ method itself.
//
//   template <>
//   const ServiceTable<Clock>& TableOf<Clock>() {
//       static const ServiceTable<Clock> table("com.example.Clock", {Row<&Clock::time>("Time", {.inNames =
//       {"zone"}})}); return table;
//   }
//   void time(const std::string& zone, std::function<void(std::int32_t)> reply) override {
//       remote_.ask<&Clock::time>(std::move(reply), zone);
//   }
namespace cmn {

// An object that is passed as an argument travels as its path; both ends are made by what specialises this:
//   static ServiceHandler Handler(const std::shared_ptr<Object>& object);
//   static std::shared_ptr<Object> Proxy(RemoteObject<Object> remote);
//   static void LogError(const RemoteError& error);
template <typename Object>
struct PassedObject;

template <typename Service>
class ServiceTable;
template <typename Service>
const ServiceTable<Service>& TableOf();

template <typename Service>
class RemoteObject;

namespace detail {

// How the argument of a method travels, leaves and arrives.
template <typename Argument>
struct Travel {
    using Wire = std::remove_cvref_t<Argument>;

    static Wire leave(ServiceChannel& /*channel*/, const Wire& value) { return value; }
    static Wire arrive(const std::shared_ptr<ServiceChannel>& /*peer*/, Wire& value) {
        return std::move(value);
    }
};
template <typename Object>
struct Travel<std::shared_ptr<Object>> {
    using Wire = bus::ObjectPath;

    static Wire leave(ServiceChannel& channel, const std::shared_ptr<Object>& object) {
        return object ? channel.exportObject(object, TableOf<Object>().description(),
                                             PassedObject<Object>::Handler(object))
                      : Wire{};
    }
    static std::shared_ptr<Object> arrive(const std::shared_ptr<ServiceChannel>& peer, Wire& path) {
        return path.isNone() ? nullptr
                             : PassedObject<Object>::Proxy(RemoteObject<Object>(
                                   peer, path.value, &PassedObject<Object>::LogError, bus::Deadline::max()));
    }
};

template <typename... Argument>
struct Arguments {
    static constexpr const char* signature() { return bus::kSignature<typename Travel<Argument>::Wire...>; }
};

// What a method takes and answers: its last argument takes the answer.
template <typename Taken, typename... Argument>
struct Split;
template <typename... Taken>
struct Split<Arguments<Taken...>> {
    using In = Arguments<Taken...>;
    using Out = void;
};
template <typename... Taken, typename Answer>
struct Split<Arguments<Taken...>, std::function<void(Answer)>> {
    using In = Arguments<Taken...>;
    using Out = std::remove_cvref_t<Answer>;
};
template <typename... Taken, typename Next, typename... Rest>
struct Split<Arguments<Taken...>, Next, Rest...> : Split<Arguments<Taken..., Next>, Rest...> {};

template <typename Member>
struct MemberParts;
template <typename Owner, typename... Argument>
struct MemberParts<void (Owner::*)(Argument...)> : Split<Arguments<>, Argument...> {
    using Service = Owner;
};

// An address of its own for each method.
template <auto Member>
inline constexpr char kKey{};

template <auto Member, typename Service, typename... In>
void Deliver(Service& service, const std::shared_ptr<ServiceChannel>& peer, const bus::Question& question,
             Arguments<In...> /*in*/) {
    auto values = question.message().template read<typename Travel<In>::Wire...>(bus::kLargestMessage);
    if (!values) {
        question.fail(values.error());
        return;
    }
    std::apply(
        [&](auto&... value) {
            using Out = typename MemberParts<decltype(Member)>::Out;
            if constexpr (std::is_void_v<Out>) {
                (service.*Member)(Travel<In>::arrive(peer, value)...);
                question.reply();  // for a caller that asks for an answer all the same
            } else {
                (service.*Member)(Travel<In>::arrive(peer, value)...,
                                  [question](const Out& answer) { question.reply(answer); });
            }
        },
        *values);
}

}  // namespace detail

// What the table says of a method beside its types.
struct RowOptions {
    std::vector<std::string> inNames = {};
    bool slow = false;
    std::size_t mostBytes = ServiceMethod{}.mostBytes;
    std::size_t mostAnswerBytes = bus::kUsuallyRead;
    std::chrono::nanoseconds deadline = kNoRequestDeadline;
};

template <typename Service>
struct ServiceRow {
    const void* key;
    ServiceMethod method;
    std::function<void(Service&, const std::shared_ptr<ServiceChannel>&, const bus::Question&)> deliver;
};

template <typename Service>
class ServiceTable {
 public:
    ServiceTable(std::string interface, std::vector<ServiceRow<Service>> rows) : rows_(std::move(rows)) {
        auto description = std::make_shared<ServiceDescription>();
        description->name = std::move(interface);
        for (const auto& row : rows_) {
            description->methods.push_back(row.method);
        }
        description_ = std::move(description);
    }

    const std::shared_ptr<const ServiceDescription>& description() const { return description_; }

    template <auto Member>
    const ServiceMethod& method() const {
        const auto row = std::find_if(rows_.begin(), rows_.end(), [](const auto& candidate) {
            return candidate.key == &detail::kKey<Member>;
        });
        return description_->methods[static_cast<std::size_t>(row - rows_.begin())];
    }

    void deliver(Service& service, const std::shared_ptr<ServiceChannel>& peer, const ServiceMethod& method,
                 const bus::Question& question) const {
        const auto index = static_cast<std::size_t>(&method - description_->methods.data());
        rows_[index].deliver(service, peer, question);
    }

    // Delivers to an object that it owns.
    ServiceHandler handler(std::shared_ptr<Service> service) const {
        return [this, service = std::move(service)](
                   const std::shared_ptr<ServiceChannel>& peer, const ServiceMethod& method,
                   const bus::Question& question) { deliver(*service, peer, method, question); };
    }
    // Delivers to an object while it lives.
    ServiceHandler weakHandler(const std::shared_ptr<Service>& service) const {
        return [this, weak = std::weak_ptr(service)](const std::shared_ptr<ServiceChannel>& peer,
                                                     const ServiceMethod& method,
                                                     const bus::Question& question) {
            if (const auto alive = weak.lock()) {
                deliver(*alive, peer, method, question);
            }
        };
    }

 private:
    const std::vector<ServiceRow<Service>> rows_;
    std::shared_ptr<const ServiceDescription> description_;
};

// `Service` is named where the method is inherited.
template <auto Member, typename Service = typename detail::MemberParts<decltype(Member)>::Service>
ServiceRow<Service> Row(std::string name, RowOptions options = {}) {
    using Parts = detail::MemberParts<decltype(Member)>;
    ServiceMethod method;
    method.name = std::move(name);
    method.in = Parts::In::signature();
    if constexpr (std::is_void_v<typename Parts::Out>) {
        method.noReply = true;
    } else {
        method.out = bus::kSignature<typename Parts::Out>;
    }
    method.inNames = std::move(options.inNames);
    method.slow = options.slow;
    method.mostBytes = options.mostBytes;
    method.mostAnswerBytes = options.mostAnswerBytes;
    method.deadline = options.deadline;
    return {&detail::kKey<Member>, std::move(method),
            [](Service& service, const std::shared_ptr<ServiceChannel>& peer, const bus::Question& question) {
                detail::Deliver<Member>(service, peer, question, typename Parts::In{});
            }};
}

// One remote object, as its proxy calls it.
template <typename Service>
class RemoteObject {
 public:
    RemoteObject(std::shared_ptr<ServiceChannel> channel, std::string path, RemoteErrorHandler onError,
                 bus::Deadline deadline)
        : channel_(std::move(channel)),
          path_(std::move(path)),
          onError_(std::move(onError)),
          deadline_(deadline) {}

    // A method with an answer, which `reply` takes; it may be empty.
    template <auto Member, typename Reply, typename... Argument>
    void ask(Reply reply, const Argument&... argument) const {
        using Out = typename detail::MemberParts<decltype(Member)>::Out;
        const std::size_t mostBytes = TableOf<Service>().template method<Member>().mostAnswerBytes;
        send<Member>(
            [reply = std::move(reply), mostBytes](bus::Message& answer) -> std::optional<bus::Error> {
                auto value = answer.readOne<Out>(mostBytes);
                if (!value) {
                    return value.error();
                }
                answer = {};  // its memory may be wanted
                if (reply) {
                    reply(std::move(*value));
                }
                return std::nullopt;
            },
            typename detail::MemberParts<decltype(Member)>::In{}, argument...);
    }

    // A method without.
    template <auto Member, typename... Argument>
    void tell(const Argument&... argument) const {
        send<Member>(nullptr, typename detail::MemberParts<decltype(Member)>::In{}, argument...);
    }

 private:
    template <auto Member, typename OnReply, typename... In>
    void send(OnReply onReply, detail::Arguments<In...> /*in*/,
              const std::type_identity_t<std::remove_cvref_t<In>>&... argument) const {
        const ServiceTable<Service>& table = TableOf<Service>();
        ServiceRequest request;
        request.path = path_;
        request.interface = table.description();
        request.method = &table.template method<Member>();
        request.write = [values = std::make_tuple(detail::Travel<In>::leave(*channel_, argument)...)](
                            bus::Message& message) {
            return std::apply([&](const auto&... value) { return message.append(value...); }, values);
        };
        request.onReply = std::move(onReply);
        request.onError = onError_;
        request.deadline = deadline_;
        channel_->call(std::move(request));
    }

    const std::shared_ptr<ServiceChannel> channel_;
    const std::string path_;
    const RemoteErrorHandler onError_;
    const bus::Deadline deadline_;
};

// A service's interface: `Proxy`, made of a remote object, is what its clients hold.
template <typename Protocol, typename Proxy>
class TableInterface final : public ServiceInterface {
 public:
    explicit TableInterface(std::string objectPath) : objectPath_(std::move(objectPath)) {}

    const std::string& objectPath() const override { return objectPath_; }
    std::shared_ptr<const ServiceDescription> description() const override {
        return TableOf<Protocol>().description();
    }
    std::shared_ptr<XPCVersioning> createProxy(std::shared_ptr<ServiceChannel> channel,
                                               RemoteErrorHandler onError,
                                               bus::Deadline deadline) const override {
        return std::make_shared<Proxy>(
            RemoteObject<Protocol>(std::move(channel), objectPath_, std::move(onError), deadline));
    }
    ServiceHandler createHandler(const std::shared_ptr<XPCVersioning>& object) const override {
        auto service = std::dynamic_pointer_cast<Protocol>(object);
        return service ? TableOf<Protocol>().handler(std::move(service)) : nullptr;
    }

 private:
    const std::string objectPath_;
};

}  // namespace cmn
