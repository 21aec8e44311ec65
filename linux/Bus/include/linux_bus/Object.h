#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "linux_bus/Codec.h"
#include "linux_bus/Introspection.h"
#include "linux_bus/Question.h"
#include "linux_bus/Result.h"

// Objects with methods and properties, as a table from which questions about them are answered.
namespace cmn::bus {

// A value of any type that can travel, on its way into a variant.
class AnyValue {
 public:
    template <typename T>
    explicit AnyValue(T value)
        : write_([variant = Variant<T>{std::move(value)}](const Writer& to) {
              return Codec<Variant<T>>::write(to, variant);
          }) {}

    bool write(const Writer& to) const { return write_(to); }

 private:
    std::function<bool(const Writer&)> write_;
};
template <>
struct Codec<AnyValue> {
    static constexpr detail::Text kType{"v"};

    static bool write(const Writer& to, const AnyValue& value) { return value.write(to); }
};

// How what a method returns becomes its answer: one value, none or several (a tuple), or an error instead.
template <typename T>
struct Answer {
    static std::vector<std::string> types() { return {std::string(kSignature<T>)}; }
    static void give(const Question& question, const T& value) { question.reply(value); }
};
template <typename... T>
struct Answer<std::tuple<T...>> {
    static std::vector<std::string> types() { return {std::string(kSignature<T>)...}; }
    static void give(const Question& question, const std::tuple<T...>& values) {
        std::apply([&](const T&... value) { question.reply(value...); }, values);
    }
};
template <>
struct Answer<void> : Answer<std::tuple<>> {};
template <typename T>
struct Answer<Result<T>> {
    static std::vector<std::string> types() { return Answer<T>::types(); }
    static void give(const Question& question, const Result<T>& result) {
        result ? Answer<T>::give(question, *result) : question.fail(result.error());
    }
};
using Nothing = std::tuple<>;

// One interface of an object. Made once, then only read. The names of arguments are for those who look at it.
class Interface {
 public:
    using Task = std::function<void()>;
    using Names = std::vector<std::string>;

    explicit Interface(std::string name) : name_(std::move(name)) {}

    // The arguments are those that `run` takes, the answer is what it returns. `names`: those of the
    // arguments, then those of the answer.
    template <typename Run>
    Interface& method(const char* name, const Names& names, Run run) {
        return addMethod(name, names, std::function(std::move(run)));
    }
    template <typename Self, typename Out, typename... In>
    Interface& method(const char* name, const Names& names, Self* self, Out (Self::*run)(In...)) {
        return method(name, names,
                      [self, run](const std::decay_t<In>&... in) { return (self->*run)(in...); });
    }
    // The same for an answer, an `Out`, that comes later: `run` gives it to the question, on any thread.
    template <typename Out, typename Self, typename... In>
    Interface& methodAnsweredLater(const char* name, const Names& names, Self* self,
                                   void (Self::*run)(const Question&, In...)) {
        return addMethod<std::decay_t<In>...>(
            name, names, Answer<Out>::types(),
            [self, run](const Question& question, const std::decay_t<In>&... in) {
                (self->*run)(question, in...);
            });
    }
    // It can be read, not written.
    template <typename Get>
    Interface& property(const char* name, Get get) {
        describeProperty(name, kSignature<decltype(get())>);
        properties_.emplace(name, [get = std::move(get)] { return AnyValue(get()); });
        return *this;
    }
    template <typename... T>
    Interface& signal(const char* name, const Names& names) {
        description_ += DescribeMember("signal", name, names, {std::string(kSignature<T>)...}, {});
        return *this;
    }

 private:
    friend class Objects;

    // None when the arguments are not those of the method; it is refused then.
    using Accept = std::function<Task(const Question&)>;

    template <typename Out, typename... In>
    Interface& addMethod(const char* name, const Names& names, std::function<Out(In...)> run) {
        return addMethod<std::decay_t<In>...>(
            name, names, Answer<Out>::types(),
            [run = std::move(run)](const Question& question, const std::decay_t<In>&... in) {
                if constexpr (std::is_void_v<Out>) {
                    run(in...);
                    question.reply();
                } else {
                    Answer<Out>::give(question, run(in...));
                }
            });
    }
    template <typename... In, typename Run>
    Interface& addMethod(const char* name, const Names& names, const std::vector<std::string>& out, Run run) {
        description_ += DescribeMember("method", name, names, {std::string(kSignature<In>)...}, out);
        methods_.emplace(name, [run = std::move(run)](const Question& question) -> Task {
            auto arguments = question.message().read<In...>(kLargestMessage);
            if (!arguments) {
                question.fail(arguments.error());
                return nullptr;
            }
            return [run, question, arguments = std::move(*arguments)] {
                std::apply([&](const In&... in) { run(question, in...); }, arguments);
            };
        });
        return *this;
    }
    void describeProperty(const char* name, const char* type);

    std::string name_;
    std::string description_;  // in XML
    std::map<std::string, Accept, std::less<>> methods_;
    std::map<std::string, std::function<AnyValue()>> properties_;
};

// The objects of a connection. Complete before the first question; must outlive the tasks.
class Objects {
 public:
    Objects() = default;
    Objects(const Objects&) = delete;
    Objects& operator=(const Objects&) = delete;

    // Brings the interfaces along that every object has.
    void add(const std::string& path, std::vector<Interface> interfaces);

    // What answers the question, to be run where the object lives. None when it was refused. Any thread.
    Interface::Task find(const Question& question) const;

 private:
    using Object = std::vector<Interface>;

    std::string introspect(std::string_view path) const;
    static Result<AnyValue> property(const Object& object, const std::string& interface,
                                     const std::string& name);
    static Result<std::map<std::string, AnyValue>> properties(const Object& object,
                                                              const std::string& interface);

    std::map<std::string, Object, std::less<>> objects_;
};

}  // namespace cmn::bus
