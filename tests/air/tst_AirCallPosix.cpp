#include "tests/air/AirCall.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The companion where it becomes the encoder: process, signals, links, rights.
class tst_AirCallPosix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void processIdIsKept();
    void signalsReachTheEncoder();
    void argumentsThatAreNoText();
    void passesOverLinksAndPlainFiles_data();
    void passesOverLinksAndPlainFiles();
    void companionOfAnotherVersion();
    void emptyEntryIsTheWorkingFolder();
    void encoderThatCannotBeRun();
};

void tst_AirCallPosix::processIdIsKept()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    const QString pids = call.filePath(u"pids"_s);

    QProcess &encoder = call.start({"fake:append="_L1 + stepText(pids.toUtf8())});
    QVERIFY(waitUntil([&] { return fileLines(pids).size() == 1; }));

    QCOMPARE(fileLines(pids).constFirst(), QString::number(encoder.processId()));
    QCOMPARE(childProcesses(), QList<qint64>{encoder.processId()});
    encoder.write("q");
    QVERIFY(encoder.waitForFinished());
}

void tst_AirCallPosix::signalsReachTheEncoder()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    QProcess &encoder = call.start({u"fake:stderr=up"_s});
    QVERIFY(waitUntil([&] { return encoder.readAllStandardError() == "up"; }));
    const qint64 pid = encoder.processId();

    killProcess(pid);

    QVERIFY(encoder.waitForFinished());
    QCOMPARE(encoder.exitStatus(), QProcess::CrashExit);
    QCOMPARE(encoder.exitCode(), killedExitCode());
    QVERIFY(!processExists(pid));
}

void tst_AirCallPosix::argumentsThatAreNoText()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    QProcess &shell = call.process();
    shell.start(u"/bin/sh"_s, {u"-c"_s, uR"sh(exec "$0" "$(printf '\377\376x')" "$1")sh"_s, call.at(u"a"_s),
                               call.argumentsStep()});
    QVERIFY(shell.waitForFinished());

    QFile seen(call.filePath(u"arguments"_s));
    QVERIFY(seen.open(QIODevice::ReadOnly));
    QCOMPARE(seen.readLine(), QByteArray("\xff\xfex\n"));
}

void tst_AirCallPosix::passesOverLinksAndPlainFiles_data()
{
    QTest::addColumn<QStringList>("path");
    QTest::addColumn<QString>("atB"); ///< kind of "ffmpeg" in the second folder
    QTest::addColumn<bool>("encoderInC");
    QTest::addColumn<int>("exitCode"); ///< the encoder's is 3

    const QStringList all{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("symbolic link to itself") << all << u"symlink"_s << true << 3;
    QTest::newRow("hard link to itself") << all << u"hard link"_s << true << 3;
    QTest::newRow("a file without execute permission") << all << u"plain file"_s << true << 3;
    QTest::newRow("a dangling link") << all << u"dangling link"_s << true << 3;
    QTest::newRow("only a symbolic link to itself") << all << u"symlink"_s << false << 127;
    QTest::newRow("only a hard link to itself") << all << u"hard link"_s << false << 127;
    QTest::newRow("only a file without execute permission") << all << u"plain file"_s << false << 127;
}

void tst_AirCallPosix::passesOverLinksAndPlainFiles()
{
    QFETCH(const QStringList, path);
    QFETCH(const QString, atB);
    QFETCH(const bool, encoderInC);
    QFETCH(const int, exitCode);
    AirCall call;
    if (atB == "symlink"_L1)
        QVERIFY(QFile::link(call.at(u"a"_s), call.at(u"b"_s)));
    else if (atB == "hard link"_L1)
        QCOMPARE(::link(QFile::encodeName(call.at(u"a"_s)).constData(),
                        QFile::encodeName(call.at(u"b"_s)).constData()),
                 0);
    else if (atB == "plain file"_L1)
        createFile(call.at(u"b"_s));
    else if (atB == "dangling link"_L1)
        QVERIFY(QFile::link(call.filePath(u"nowhere"_s), call.at(u"b"_s)));
    if (encoderInC)
        call.putEncoder(u"c"_s);
    call.setPath(path);

    QCOMPARE(call.run({u"fake:exit=3"_s}), exitCode);
    QCOMPARE(call.process().readAllStandardError(), exitCode == 127 ? noOtherEncoder() : QByteArray());
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
}

void tst_AirCallPosix::companionOfAnotherVersion()
{
    AirCall call;
    QVERIFY(QFile::copy(call.at(u"a"_s), call.at(u"b"_s)));
    call.putEncoder(u"c"_s);
    const auto identity = [&](const QString &folder) {
        struct stat status
        {
        };
        ::stat(QFile::encodeName(call.at(folder)).constData(), &status);
        return u",%1:%2,"_s.arg(status.st_dev).arg(status.st_ino);
    };
    QProcessEnvironment environment = call.process().processEnvironment();
    environment.insert(u"CORVANE_AIR_PASSED"_s, identity(u"b"_s)); // it has handed this call on
    call.process().setProcessEnvironment(environment);

    QCOMPARE(call.run({u"fake:variable=CORVANE_AIR_PASSED,exit=3"_s}), 3);

    QCOMPARE(call.process().readAllStandardError(), (identity(u"b"_s) + identity(u"a"_s) + u'\n').toUtf8());
}

void tst_AirCallPosix::emptyEntryIsTheWorkingFolder()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    call.setPath({u"a"_s, QString(), u"c"_s});
    call.process().setWorkingDirectory(call.filePath(u"b"_s));

    QCOMPARE(call.run({u"fake:exit=3"_s}), 3);
}

void tst_AirCallPosix::encoderThatCannotBeRun()
{
    AirCall call;
    QFile file(call.at(u"b"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("\x7fno program\n");
    file.close();
    QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser));

    QCOMPARE(call.run({u"-version"_s}), 127);
    QCOMPARE(QString::fromUtf8(call.process().readAllStandardError()),
             u"[air] %1: Exec format error\n"_s.arg(call.at(u"b"_s)));
}

CORVANE_TEST(tst_AirCallPosix, QCoreApplication)
#include "tst_AirCallPosix.moc"
