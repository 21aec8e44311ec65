// Several threads of a new process write records for the first time, at the same moment. Ends normally unless
// the bus library ends the process.
#include <QDBusArgument>
#include <QDBusVariant>
#include <latch>
#include <thread>
#include <vector>

#include "DBusMarshalling.h"

int main() {
    constexpr int kThreads = 8;
    const cmn::DBusArguments records{
        std::vector<std::map<std::string, std::string>>{{{"Name", "Cards"}}, {}}};
    std::latch start(kThreads);
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (const QVariant& variant : cmn::ToVariants(records)) {
                QDBusArgument argument;
                argument << QDBusVariant(variant);
            }
        });
    }
}
