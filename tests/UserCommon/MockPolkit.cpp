#include "MockPolkit.h"

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QVariantMap>
#include <utility>

// "(bba{ss})"
static QDBusArgument& operator<<(QDBusArgument& out, const MockPolkit::Verdict& verdict) {
    out.beginStructure();
    out << verdict.isAuthorized << verdict.isChallenge;
    out.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    for (auto entry = verdict.details.begin(); entry != verdict.details.end(); ++entry) {
        out.beginMapEntry();
        out << entry.key() << entry.value();
        out.endMapEntry();
    }
    out.endMap();
    out.endStructure();
    return out;
}
// The bus library wants both directions; nobody answers the mock like this.
static const QDBusArgument& operator>>(const QDBusArgument& in, MockPolkit::Verdict& /*verdict*/) {
    return in;
}

MockPolkit::Check::Check(const fake::ReceivedCalls::Call& call) : sender(call.sender) {
    const auto subject = qvariant_cast<QDBusArgument>(call.arguments.at(0));
    QString kind;
    QVariantMap properties;
    subject.beginStructure();
    subject >> kind >> properties;
    subject.endStructure();
    subjectKind = kind.toStdString();
    subjectName = properties.value(QStringLiteral("name")).toString().toStdString();
    subjectSize = properties.size();
    action = call.arguments.at(1).toString().toStdString();
    const auto map = qvariant_cast<QDBusArgument>(call.arguments.at(2));
    map.beginMap();
    while (!map.atEnd()) {
        QString key;
        QString value;
        map.beginMapEntry();
        map >> key >> value;
        map.endMapEntry();
        details[key.toStdString()] = value.toStdString();
    }
    map.endMap();
    flags = call.arguments.at(3).toUInt();
    cancellationId = call.arguments.at(4).toString().toStdString();
}

MockPolkit::MockPolkit(const std::string& address, Handler onCheck)
    : peer_(address, [this, onCheck = std::move(onCheck)](const QDBusMessage& message,
                                                          const QDBusConnection& connection) {
          calls_.add(message);
          if (message.member() == QLatin1String("CheckAuthorization")) {
              onCheck(message, connection);
          } else if (answersWithdrawals) {
              connection.send(message.createReply());
          }
      }) {
    qDBusRegisterMetaType<Verdict>();
    EXPECT_TRUE(peer_.own(kName));
}

MockPolkit::Handler MockPolkit::answering(const Verdict& verdict) {
    return [verdict](const QDBusMessage& question, const QDBusConnection& connection) {
        connection.send(question.createReply(QVariant::fromValue(verdict)));
    };
}

MockPolkit::Handler MockPolkit::failing(const char* name, const char* text) {
    return [name, text](const QDBusMessage& question, const QDBusConnection& connection) {
        connection.send(question.createErrorReply(QLatin1String(name), QLatin1String(text)));
    };
}

MockPolkit::Handler MockPolkit::hanging() {
    return [](const QDBusMessage& /*question*/, const QDBusConnection& /*connection*/) {};
}

std::vector<MockPolkit::Check> MockPolkit::checks() {
    const auto calls = calls_.all("CheckAuthorization");
    return {calls.begin(), calls.end()};
}
