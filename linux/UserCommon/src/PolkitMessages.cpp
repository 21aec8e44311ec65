#include "PolkitMessages.h"

#include <QDBusArgument>
#include <QMap>
#include <QVariantMap>

#include "DBusMarshalling.h"
#include "linux_usercommon/RegisterDBusType.h"

namespace cmn::polkit {

namespace {

struct Subject {
    QString kind;
    QVariantMap details;
};

// A type of our own although it is a plain map: the same type must not become known in two places.
struct Details {
    QMap<QString, QString> entries;
};

QDBusArgument& operator<<(QDBusArgument& out, const Subject& subject) {
    out.beginStructure();
    out << subject.kind << subject.details;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, Subject& subject) {
    in.beginStructure();
    in >> subject.kind >> subject.details;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const Details& details) {
    out.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    for (auto entry = details.entries.begin(); entry != details.entries.end(); ++entry) {
        out.beginMapEntry();
        out << entry.key() << entry.value();
        out.endMapEntry();
    }
    out.endMap();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, Details& details) {
    details.entries.clear();
    in.beginMap();
    while (!in.atEnd()) {
        QString key;
        QString value;
        in.beginMapEntry();
        in >> key >> value;
        in.endMapEntry();
        details.entries.insert(key, value);
    }
    in.endMap();
    return in;
}

bool RegisterTypes() {
    RegisterDBusType<Subject>();
    RegisterDBusType<Details>();
    return true;
}

// Starts the service when it does not run.
QDBusMessage Call(const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.PolicyKit1"), QStringLiteral("/org/freedesktop/PolicyKit1/Authority"),
        QStringLiteral("org.freedesktop.PolicyKit1.Authority"), QString::fromLatin1(method));
}

}  // namespace

QDBusMessage CheckAuthorization(const Question& question) {
    [[maybe_unused]] static const bool registered = RegisterTypes();
    constexpr unsigned kAllowUserInteraction = 1;
    const Subject subject{QStringLiteral("system-bus-name"),
                          {{QStringLiteral("name"), ToQString(question.callerName)}}};
    Details details;
    if (!question.message.empty()) {
        details.entries.insert(QStringLiteral("polkit.message"), ToQString(question.message));
    }
    QDBusMessage message = Call("CheckAuthorization");
    message.setArguments({QVariant::fromValue(subject), ToQString(question.action),
                          QVariant::fromValue(details), question.mayAskUser ? kAllowUserInteraction : 0U,
                          QString::number(question.cancellationId)});
    return message;
}

QDBusMessage CancelCheckAuthorization(unsigned cancellationId) {
    QDBusMessage message = Call("CancelCheckAuthorization");
    message.setAutoStartService(false);
    message.setArguments({QString::number(cancellationId)});
    return message;
}

std::optional<Verdict> ReadVerdict(const QDBusMessage& answer) {
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != QLatin1String("(bba{ss})")) {
        return std::nullopt;
    }
    const auto argument = qvariant_cast<QDBusArgument>(answer.arguments().value(0));
    Verdict verdict;
    Details details;
    argument.beginStructure();
    argument >> verdict.isAuthorized >> verdict.isChallenge >> details;
    argument.endStructure();
    verdict.wasDismissed = details.entries.contains(QStringLiteral("polkit.dismissed"));
    return verdict;
}

bool IsNotAuthorized(const QDBusMessage& answer) {
    return answer.errorName() == QLatin1String("org.freedesktop.PolicyKit1.Error.NotAuthorized");
}

}  // namespace cmn::polkit
