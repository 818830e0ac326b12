#include "tests/air/AirCall.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The companion where it can't become the encoder: a parent that mirrors its child.
class tst_AirCall_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killTakesTheEncoderAlong();
    void encoderThatCannotBeRun();
    void otherListsStayAsTheyAre();
};

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
    QString words = qt_error_string(193).trimmed(); // ERROR_BAD_EXE_FORMAT
    if (words.endsWith(u'.'))
        words.chop(1);
    QCOMPARE(QString::fromUtf8(said),
             u"[air] %1: %2\n"_s.arg(QDir::toNativeSeparators(call.at(u"b"_s)), words));
}

void tst_AirCall_win::otherListsStayAsTheyAre()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    const QString target = uR"([f=flv:fifo_options=a=1\:b=2]x|[f=flv]%1)"_s.arg(call.argumentsStep());
    const QStringList list{u"-i"_s, u"film.mp4"_s, u"-f"_s, u"tee"_s, target};

    QCOMPARE(call.run(list), 0);

    QCOMPARE(fileLines(call.filePath(u"arguments"_s)), list);
}

CORVANE_TEST(tst_AirCall_win, QCoreApplication)
#include "tst_AirCall_win.moc"
