// A program for the guardian to guard, with CORVANE's marks. The file "behaviour" beside it names what
// it does:
//
//   beats     its heartbeat goes on; it exits in order when do-quit appears in the runtime directory, and
//             crashes when do-crash does
//   copies    beats, and a copy of itself is about to become another program (Linux)
//   mute      it lives without a heartbeat
//   once      one beat, and none after it
//   falls     a few beats, then it crashes
//   crashes   at once
//   fails     at once, with exit code 255 and no marks of an end
//   leaves    at once, in order
//
// It transmits while the file "on-air" is in the runtime directory: a process of its own runs, as an encoder
// does.
//
// It ends when the folder of its runtime directory is gone, as nobody is left to end it.
//
// Each start adds a line to "starts" in the runtime directory: the text of the file "version" beside it, and
// its feed, "-" without one.

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>
#endif
#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace Qt::StringLiterals;

namespace {

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

void write(const QString &path, const QByteArray &text, QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QFile file(path);
    if (file.open(mode))
        file.write(text);
}

/// A death that the system reports to the parent as a crash.
[[noreturn]] void crash()
{
#ifdef Q_OS_WIN
    // An abort is an exit code there like any other.
    TerminateProcess(GetCurrentProcess(), STATUS_ACCESS_VIOLATION);
#endif
    std::abort();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (QCoreApplication::arguments().value(1) == "--encoder"_L1)
        return std::getchar() == EOF ? 0 : 1; // it ends with the program that has started it
    const QString runtime = qEnvironmentVariable("CORVANE_RUNTIME_DIR");
    const auto isAbandoned = [&runtime] { return !QFileInfo::exists(QFileInfo(runtime).path()); };
    if (isAbandoned())
        return 1;
    const QString own = QCoreApplication::applicationDirPath();
    const QByteArray behaviour = contentsOf(own + "/behaviour"_L1);
    const QString sentinel = runtime + "/crashes/.running"_L1;

    QDir().mkpath(runtime + "/crashes"_L1);
    write(sentinel, "running\n");
    const QByteArray feed = qgetenv("CORVANE_UPDATE_FEED");
    write(runtime + "/starts"_L1,
          contentsOf(own + "/version"_L1) + ' ' + (feed.isEmpty() ? QByteArray("-") : feed) + '\n',
          QIODevice::WriteOnly | QIODevice::Append);
    const auto leave = [&] {
        QFile::remove(sentinel);
        write(runtime + "/.cleanexit"_L1, {});
    };
    if (behaviour == "crashes")
        crash();
    if (behaviour == "fails")
        return 255;
    if (behaviour == "leaves") {
        leave();
        return 0;
    }

#ifdef Q_OS_LINUX
    if (behaviour == "copies" && fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pause();
    }
#endif

    QTimer beat;
    QObject::connect(&beat, &QTimer::timeout, &app, [&] {
        write(runtime + "/.heartbeat"_L1, QByteArray::number(QDateTime::currentMSecsSinceEpoch()));
    });
    constexpr int beatMs = 50;
    constexpr int fewBeatsMs = 300;
    if (behaviour == "beats" || behaviour == "copies" || behaviour == "falls")
        beat.start(beatMs);
    if (behaviour == "once") {
        beat.setSingleShot(true);
        beat.start(beatMs);
    }
    if (behaviour == "falls")
        QTimer::singleShot(fewBeatsMs, [] { crash(); });
    QProcess encoder;
#ifdef Q_OS_WIN
    const QString encoderPath = runtime + "/ffmpeg.exe"_L1;
#else
    const QString encoderPath = runtime + "/ffmpeg"_L1;
#endif
    QFile::copy(QCoreApplication::applicationFilePath(), encoderPath);
    QTimer orders;
    QObject::connect(&orders, &QTimer::timeout, &app, [&] {
        if (QFile::exists(runtime + "/on-air"_L1) != (encoder.state() != QProcess::NotRunning)) {
            if (encoder.state() == QProcess::NotRunning)
                encoder.start(encoderPath, {u"--encoder"_s});
            else
                encoder.kill();
        }
        if (QFile::remove(runtime + "/do-crash"_L1))
            crash();
        if (QFile::remove(runtime + "/do-quit"_L1) || isAbandoned())
            QCoreApplication::quit();
    });
    orders.start(20);
    const int exitCode = QCoreApplication::exec();
    encoder.kill();
    encoder.waitForFinished();
    leave();
    return exitCode;
}
