#include "doctor/RunProgram.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <algorithm>
#include <chrono>

namespace ctl {

bool RunProgram(const std::vector<std::string>& command, cmn::bus::Deadline deadline) {
    QStringList arguments;
    for (const std::string& word : command) {
        arguments.append(QString::fromStdString(word));
    }
    if (arguments.isEmpty()) {
        return false;
    }
    QProcess process;  // ends its program when it goes
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    const QString program = arguments.takeFirst();
    process.start(program, arguments);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - cmn::bus::Clock::now());
    const int patience = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
    if (!process.waitForFinished(patience)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

}  // namespace ctl
