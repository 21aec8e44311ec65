#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <atomic>
#include <future>
#include <stdexcept>

#include "linux_bus/Connection.h"
#include "linux_bus/Object.h"
#include "support/PrivateBus.h"
#include "support/RawPeer.h"
#include "support/WaitFor.h"

namespace {

using namespace cmn::bus;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kPath = "/com/example/Object";
constexpr const char* kShelf = "com.example.Shelf";

// An object as another program sees it, which shares nothing with it but the bus.
class ObjectTest : public testing::Test {
 protected:
    ObjectTest() {
        objects.add(
            kPath,
            {Interface(kShelf)
                 .property("Title", [] { return std::string("books"); })
                 .property("Cover",
                           [] {
                               return std::vector<std::uint8_t>{0, 1, 255};
                           })
                 .property("Place", [] { return ObjectPath{"/shelf"}; })
                 .property("Sizes",
                           [] { return std::vector{std::tuple(std::int32_t{3}, std::string("three"))}; })
                 .method("Add", {"a", "b", "sum"},
                         [this](std::int32_t a, std::int32_t b) {
                             ++calls;
                             return a + b;
                         })
                 .method("Halve", {"number", "half", "rest"},
                         [](std::uint32_t number) { return std::tuple(number / 2, number % 2); })
                 .method("Refuse", {"why"},
                         [](const std::string& why) -> Result<Nothing> {
                             return Error{error::kLimitsExceeded, why};
                         })
                 .method("Nod", {}, [] {})
                 .methodAnsweredLater<std::int32_t>("Wait", {"for", "answer"}, this, &ObjectTest::wait)
                 .method("Throw", {}, []() -> std::int32_t { throw std::runtime_error("no"); })
                 .method("Mix", {"values", "any", "count"},
                         [](const std::map<std::string, std::variant<std::monostate, bool>>& values,
                            const std::variant<std::monostate>&) {
                             return static_cast<std::uint32_t>(values.size());
                         })
                 .signal<std::string>("Moved", {"where"}),
             Interface("com.example.Other").method("Only", {"number"}, [] { return std::uint32_t{7}; })});
        objects.add("/com/example/Other", {Interface("com.example.Empty")});
        std::atomic<bool> ready{false};
        connection = Connection::open(loop, {.address = bus.address()},
                                      {[&] { ready = true; },
                                       {},
                                       [this](const Question& question) {
                                           if (const Interface::Task answer = objects.find(question)) {
                                               ++delivered;
                                               answer();
                                           }
                                       }});
        EXPECT_TRUE(fake::WaitFor([&] { return ready.load(); }));
    }
    ~ObjectTest() override { loop->stop(); }

    // Answered by another thread, or by nobody.
    void wait(const Question& question, const std::string& whom) {
        if (whom != "nobody") {
            later = std::async(std::launch::async, [question] { question.reply(std::int32_t{8}); });
        }
    }
    QDBusMessage ask(const std::string& interface, const char* member, const QVariantList& arguments = {},
                     const char* path = kPath) {
        return peer.call(
            fake::RawPeer::message(connection->uniqueName(), path, interface, member, arguments));
    }
    std::string error(const QDBusMessage& answer) {
        EXPECT_EQ(answer.type(), QDBusMessage::ErrorMessage);
        return answer.errorName().toStdString();
    }
    std::string introspect(const char* path) {
        return ask(kIntrospectable, "Introspect", {}, path).arguments().value(0).toString().toStdString();
    }

    fake::PrivateBus bus;
    std::shared_ptr<Loop> loop = std::make_shared<Loop>();
    std::atomic<int> calls{0};
    std::atomic<int> delivered{0};
    std::future<void> later;
    Objects objects;
    std::shared_ptr<Connection> connection;
    fake::RawPeer peer{bus.address()};
};

TEST_F(ObjectTest, MethodsAnswerOneValueSeveralOrNone) {
    EXPECT_EQ(ask(kShelf, "Add", {2, 3}).arguments(), QVariantList{5});
    EXPECT_EQ(ask(kShelf, "Halve", {7U}).arguments(), (QVariantList{3U, 1U}));
    const QDBusMessage nod = ask(kShelf, "Nod");
    EXPECT_EQ(nod.type(), QDBusMessage::ReplyMessage);
    EXPECT_THAT(nod.arguments(), IsEmpty());
}

TEST_F(ObjectTest, AMethodMayBeAnsweredLaterAndByAnotherThread) {
    EXPECT_EQ(ask(kShelf, "Wait", {"thread"}).arguments(), QVariantList{8});
    EXPECT_EQ(error(ask(kShelf, "Wait", {"nobody"})), error::kFailed) << "kept waiting";
    EXPECT_EQ(error(ask(kShelf, "Wait", {1})), error::kInvalidArgs);
    EXPECT_THAT(introspect(kPath), HasSubstr("<method name=\"Wait\"><arg name=\"for\" type=\"s\" "
                                             "direction=\"in\"/><arg name=\"answer\" type=\"i\" "
                                             "direction=\"out\"/></method>"));
}

TEST_F(ObjectTest, ArgumentsOfAnyTypeMayBeInsideVariants) {
    const QVariantMap values{{"yes", true}, {"text", "t"}, {"list", QStringList{"a", "b"}}};
    const QVariant any = QVariant::fromValue(QDBusVariant(values));
    EXPECT_EQ(ask(kShelf, "Mix", {values, any}).arguments(), QVariantList{3U});
}

TEST_F(ObjectTest, MethodMayRefuseOrFail) {
    const QDBusMessage refused = ask(kShelf, "Refuse", {"too many"});
    EXPECT_EQ(error(refused), error::kLimitsExceeded);
    EXPECT_EQ(refused.errorMessage(), "too many");
    EXPECT_EQ(error(ask(kShelf, "Throw")), error::kFailed);
}

TEST_F(ObjectTest, WrongArgumentsAreRefusedBeforeTheyAreDelivered) {
    EXPECT_EQ(error(ask(kShelf, "Add", {2})), error::kInvalidArgs);
    EXPECT_EQ(error(ask(kShelf, "Add", {2, "three"})), error::kInvalidArgs);
    EXPECT_EQ(error(ask(kShelf, "Nod", {2})), error::kInvalidArgs);
    EXPECT_EQ(delivered, 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(ObjectTest, WhatIsNotThereIsRefusedBeforeItIsDelivered) {
    EXPECT_EQ(error(ask(kShelf, "Add", {2, 3}, "/com/example")), error::kUnknownObject);
    EXPECT_EQ(error(ask("com.example.Unknown", "Add", {2, 3})), error::kUnknownInterface);
    EXPECT_EQ(error(ask(kShelf, "Subtract", {2, 3})), error::kUnknownMethod);
    EXPECT_EQ(error(ask(kShelf, "Only")), error::kUnknownMethod) << "it belongs to the other interface";
    EXPECT_EQ(delivered, 0);
}

TEST_F(ObjectTest, CallerMayLeaveOutTheInterface) {
    EXPECT_EQ(ask("", "Add", {2, 3}).arguments(), QVariantList{5});
    EXPECT_EQ(ask("", "Only").arguments(), QVariantList{7U});
}

TEST_F(ObjectTest, PropertiesAreReadOneByOneAndAllTogether) {
    const auto get = [this](const char* interface, const char* name) {
        return ask(kProperties, "Get", {interface, name})
            .arguments()
            .value(0)
            .value<QDBusVariant>()
            .variant();
    };
    EXPECT_EQ(get(kShelf, "Title"), QVariant("books"));
    EXPECT_EQ(get("", "Title"), QVariant("books"));
    EXPECT_EQ(get(kShelf, "Cover"), QVariant(QByteArray("\0\1\xff", 3)));
    EXPECT_EQ(get(kShelf, "Place").value<QDBusObjectPath>().path(), "/shelf");
    EXPECT_EQ(get(kShelf, "Sizes").value<QDBusArgument>().currentSignature(), "a(is)");
    const auto all = qdbus_cast<QVariantMap>(ask(kProperties, "GetAll", {kShelf}).arguments().value(0));
    EXPECT_EQ(all.keys(), (QStringList{"Cover", "Place", "Sizes", "Title"}));
    EXPECT_EQ(all.value("Title"), QVariant("books"));
}

TEST_F(ObjectTest, PropertiesThatAreNotThereAndWritingAreRefused) {
    EXPECT_EQ(error(ask(kProperties, "Get", {kShelf, "Unknown"})), error::kUnknownProperty);
    EXPECT_EQ(error(ask(kProperties, "Get", {"com.example.Other", "Title"})), error::kUnknownProperty);
    EXPECT_EQ(error(ask(kProperties, "GetAll", {"com.example.Unknown"})), error::kUnknownInterface);
    const QVariant value = QVariant::fromValue(QDBusVariant("new"));
    EXPECT_EQ(error(ask(kProperties, "Set", {kShelf, "Title", value})), error::kPropertyReadOnly);
}

TEST_F(ObjectTest, ObjectDescribesItself) {
    const std::string xml = introspect(kPath);
    for (
        const char* const part :
        {R"(<interface name="com.example.Shelf">)",
         R"x(<property name="Sizes" type="a(is)" access="read"/>)x",
         R"(<method name="Halve"><arg name="number" type="u" direction="in"/>)"
         R"(<arg name="half" type="u" direction="out"/><arg name="rest" type="u" direction="out"/></method>)",
         R"(<method name="Mix"><arg name="values" type="a{sv}" direction="in"/>)"
         R"(<arg name="any" type="v" direction="in"/>)",
         R"(<signal name="Moved"><arg name="where" type="s" direction="out"/></signal>)",
         R"(<interface name="org.freedesktop.DBus.Properties">)",
         R"(<arg name="values" type="a{sv}" direction="out"/>)"}) {
        EXPECT_THAT(xml, HasSubstr(part));
    }
}

TEST_F(ObjectTest, ObjectsAreFoundFromTheRoot) {
    EXPECT_THAT(introspect("/"), HasSubstr(R"(<node name="com"/>)"));
    const std::string above = introspect("/com/example");
    EXPECT_THAT(above, HasSubstr(R"(<node name="Object"/>)"));
    EXPECT_THAT(above, HasSubstr(R"(<node name="Other"/>)"));
    EXPECT_THAT(introspect(kPath), Not(HasSubstr("<node name=")));
    EXPECT_EQ(error(ask(kIntrospectable, "Introspect", {}, "/com/exam")), error::kUnknownObject);
}

TEST_F(ObjectTest, PingIsAnsweredByTheLibrary) {
    EXPECT_EQ(ask("org.freedesktop.DBus.Peer", "Ping").type(), QDBusMessage::ReplyMessage);
}

}  // namespace
