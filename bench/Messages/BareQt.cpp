#include "BareQt.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <atomic>
#include <cstdio>
#include <map>

#include "Records.h"
#include "ServiceProcess.h"

namespace bare_qt {

namespace {

using QtRecords = QList<QMap<QString, QString>>;

void RegisterTypes() {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qDBusRegisterMetaType<QtRecords>();
}

QtRecords ToQt(const std::vector<cmn::ScanRecord>& records) {
    QtRecords list;
    for (const cmn::ScanRecord& record : records) {
        QMap<QString, QString> map;
        for (const auto& [key, text] : record) {
            map.insert(QString::fromStdString(key), QString::fromStdString(text));
        }
        list.append(map);
    }
    return list;
}

QString NextName() {
    static std::atomic<int> last{0};
    return QStringLiteral("bare-%1").arg(++last);
}

QDBusMessage NewCall(const char* member) {
    return QDBusMessage::createMethodCall(
        QString::fromLatin1(ServiceProcess::kBareQtName), QString::fromLatin1(ServiceProcess::kBarePath),
        QString::fromLatin1(ServiceProcess::kBareQtName), QString::fromLatin1(member));
}

class Service : public QDBusVirtualObject {
 public:
    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        connection.send(message.member() == QLatin1String("Version")
                            ? message.createReply(QStringLiteral("1.0"))
                            : message.createReply(QVariant::fromValue(
                                  records_.at(message.arguments()[0].toString().toInt()))));
        return true;
    }

 private:
    static std::map<int, QtRecords> MakeAnswers() {
        std::map<int, QtRecords> answers;
        for (const auto& [count, records] : MakeAllRecords()) {
            answers[count] = ToQt(records);
        }
        return answers;
    }

    const std::map<int, QtRecords> records_ = MakeAnswers();
};

}  // namespace

Client::Client() : bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, NextName())) {
    RegisterTypes();
}

bool Client::version() {
    return bus_.call(NewCall("Version")).arguments() == QVariantList{QStringLiteral("1.0")};
}

bool Client::ask(int count) {
    if (!version()) {
        return false;
    }
    QDBusMessage question = NewCall("GetScanResult");
    question.setArguments({QString::number(count)});
    const QDBusMessage answer = bus_.call(question);
    return !answer.arguments().isEmpty() && qdbus_cast<QtRecords>(answer.arguments()[0]).size() == count;
}

int RunService(const char* name) {
    RegisterTypes();
    Service service;
    GiveFreeMemoryBack();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(QString::fromLatin1(ServiceProcess::kBarePath), &service) ||
        !bus.registerService(QString::fromLatin1(name))) {
        std::fprintf(stderr, "the bare service could not be offered\n");
        return 1;
    }
    return QCoreApplication::exec();
}

}  // namespace bare_qt
