// Holds and releases the requests of a program on air, on orders from standard input, a word to a line, and
// prints "done WORD" after each:
//
//   hold       preventSleep()
//   release    allowSleep()
//   block      blockShutdown()
//   unblock    allowShutdown()
//   settle     waits until no bus is being connected and every call to a service has its reply
//   quit       exits; so does the end of standard input

#include "engine/host/KeepAwake.h"
#include "engine/host/ShutdownBlock.h"

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

void settle()
{
    QTimer wake;
    wake.start(5);
    const QCoreApplication *const application = QCoreApplication::instance();
    while (!application->findChildren<QThread *>().isEmpty() ||
           !application->findChildren<QDBusPendingCallWatcher *>().isEmpty()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::ExcludeSocketNotifiers);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

void obey(const QByteArray &word)
{
    if (word == "hold")
        corvane::preventSleep();
    else if (word == "release")
        corvane::allowSleep();
    else if (word == "block")
        corvane::blockShutdown();
    else if (word == "unblock")
        corvane::allowShutdown();
    else if (word == "settle")
        settle();
    else if (word == "quit")
        QCoreApplication::quit();
    std::printf("done %s\n", word.constData());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("holder"));

    QByteArray pending;
    const QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &input, [&pending] {
        std::array<char, 256> bytes{};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(bytes.data(), count);
        for (qsizetype end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
            const QByteArray word = pending.first(end);
            pending.remove(0, end + 1);
            obey(word);
        }
    });
    return QCoreApplication::exec();
}
