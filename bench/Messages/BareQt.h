#pragma once

#include <QDBusConnection>
#include <QDBusMessage>

// The same questions and answers with Qt's bus library alone. Its lists are shared, so its service answers
// with those that it has.
namespace bare_qt {

class Client {
 public:
    Client();
    // Whether the right version came.
    bool version();
    // Asks for the version, then for so many records; whether they came.
    bool ask(int count);

 private:
    QDBusConnection bus_;
};

// Serves until the process is killed; needs an application object.
int RunService(const char* name);

}  // namespace bare_qt
