#include "tests/air/AirCall.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The companion where it can't become the encoder: a parent that mirrors its child.
class tst_AirCall_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void crash();
    void killTakesTheEncoderAlong();
    void encoderThatCannotBeRun();
};

void tst_AirCall_win::crash()
{
    AirCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:crash"_s}), crashedExitCode());
    QCOMPARE(call.process().exitStatus(), QProcess::CrashExit);
}

void tst_AirCall_win::killTakesTheEncoderAlong()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    const QString pids = call.filePath(u"pids"_s);
    QProcess &companion = call.start({"fake:append="_L1 + stepText(pids.toUtf8())});
    QVERIFY(waitUntil([&] { return fileLines(pids).size() == 1; }));
    const qint64 encoder = fileLines(pids).constFirst().toLongLong();
    QVERIFY(encoder != companion.processId());
    QVERIFY(processExists(encoder));

    killProcess(companion.processId());

    QVERIFY(companion.waitForFinished());
    QVERIFY(waitUntil([&] { return !processExists(encoder); }));
}

void tst_AirCall_win::encoderThatCannotBeRun()
{
    AirCall call;
    QFile file(call.at(u"b"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("no program");
    file.close();

    QCOMPARE(call.run({u"-version"_s}), 127);
    const QByteArray said = call.process().readAllStandardError();
    QVERIFY2(said.startsWith("[air] ") && said.endsWith(": error 193\n"),
             said.constData()); // ERROR_BAD_EXE_FORMAT
}

CORVANE_TEST(tst_AirCall_win, QCoreApplication)
#include "tst_AirCall_win.moc"
