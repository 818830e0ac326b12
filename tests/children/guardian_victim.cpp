// A guardian at work on an update, to be killed at any moment.
//
//   guardian_victim INSTALLATION RUNTIME-DIRECTORY MANIFEST-FILE

#include "tools/guardian/FileNames.h"
#include "tools/guardian/Supervisor.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QTimer>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane::guardian;

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    GuardianSettings settings;
    settings.installation = {arguments.value(1), programFileName(), {}};
    settings.runtimeDirectory = arguments.value(2);
    settings.lookInterval = 10ms;
    settings.silence = 100ms;
    settings.restarts.firstDelayMs = 1;

    Supervisor supervisor(settings, [&arguments](const ManifestAnswer &answer) {
        QTimer::singleShot(0, [answer, path = arguments.value(3)] {
            QFile file(path);
            answer(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(), {});
        });
    });
    QObject::connect(&supervisor, &Supervisor::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    supervisor.run();
    return QCoreApplication::exec();
}
