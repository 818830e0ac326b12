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

/// The built companion before a fake encoder: lists that aren't of a transmission.
class tst_AirCall : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exitCode_data();
    void exitCode();
    void crash();
    void standardInput();
    void standardOutputAndError();
    void argumentsByteForByte();
    void search_data();
    void search();
};

void tst_AirCall::exitCode_data()
{
    QTest::addColumn<int>("code");

    QTest::newRow("success") << 0;
    QTest::newRow("failure") << 1;
    QTest::newRow("as a shell says it") << 127;
    QTest::newRow("largest") << 255;
}

void tst_AirCall::exitCode()
{
    QFETCH(const int, code);
    AirCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:exit=%1"_s.arg(code)}), code);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
}

void tst_AirCall::crash()
{
    AirCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:crash"_s}), crashedExitCode());
    QCOMPARE(call.process().exitStatus(), QProcess::CrashExit);
}

void tst_AirCall::standardInput()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    const QString input = call.filePath(u"input"_s);
    QProcess &encoder =
        call.start({"fake:quit-code=5,input="_L1 + stepText(input.toUtf8()) + ",stderr=up"_L1});
    QVERIFY(waitUntil([&] { return encoder.readAllStandardError() == "up"; }));

    encoder.write("q");

    QVERIFY(encoder.waitForFinished());
    QCOMPARE(encoder.exitCode(), 5);
    QCOMPARE(fileLines(input), QStringList{u"q"_s});
}

void tst_AirCall::standardOutputAndError()
{
    AirCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:stdout=%00out%FF%0A,stderr=err%0D%0A,exit=0"_s}), 0);

    QCOMPARE(call.process().readAllStandardOutput(), QByteArray("\0out\xff\n", 6));
    QCOMPARE(call.process().readAllStandardError(), QByteArray("err\r\n"));
}

void tst_AirCall::argumentsByteForByte()
{
    AirCall call;
    call.putEncoder(u"b"_s);
    const QStringList arguments{u"-hide_banner"_s,        QString(),
                                u"one two  three"_s,      u"\"double\" 'single' `back`"_s,
                                uR"(back\slash\\ \:)"_s,  u"$HOME ${PATH} %PATH% *"_s,
                                u"ação — münchen 日本"_s, u"srt://h:1?passphrase=a&b#c"_s,
                                u"[f=flv:o=a\\:b]x|y"_s,  QString(20000, u'x'),
                                call.argumentsStep()};

    QCOMPARE(call.run(arguments), 0);

    QFile seen(call.filePath(u"arguments"_s));
    QVERIFY(seen.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(seen.readAll()), arguments.join(u'\n') + u'\n');
}

void tst_AirCall::search_data()
{
    QTest::addColumn<QStringList>("path");
    QTest::addColumn<QString>("atB"); ///< kind of "ffmpeg" in the second folder
    QTest::addColumn<bool>("encoderInC");
    QTest::addColumn<int>("exitCode"); ///< the encoder's is 3

    const QStringList all{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("next folder of the path") << all << u"encoder"_s << false << 3;
    QTest::newRow("folders without one are passed over") << all << QString() << true << 3;
    QTest::newRow("its own folder isn't on the path") << QStringList{u"c"_s} << QString() << true << 3;
    QTest::newRow("its own folder comes last") << QStringList{u"c"_s, u"a"_s} << QString() << true << 3;
    QTest::newRow("a folder that isn't there")
        << QStringList{u"a"_s, u"none"_s, u"c"_s} << QString() << true << 3;
    QTest::newRow("the same folder twice") << QStringList{u"a"_s, u"a"_s, u"c"_s} << QString() << true << 3;
    QTest::newRow("second copy") << all << u"copy"_s << true << 3;
    QTest::newRow("a folder called ffmpeg") << all << u"folder"_s << true << 3;
    QTest::newRow("nothing on an empty path") << QStringList() << QString() << true << 127;
    QTest::newRow("only itself") << all << QString() << false << 127;
    QTest::newRow("only a second copy") << all << u"copy"_s << false << 127;
}

void tst_AirCall::search()
{
    QFETCH(const QStringList, path);
    QFETCH(const QString, atB);
    QFETCH(const bool, encoderInC);
    QFETCH(const int, exitCode);
    AirCall call;
    if (atB == "encoder"_L1)
        call.putEncoder(u"b"_s);
    else if (atB == "copy"_L1)
        QVERIFY(QFile::copy(call.at(u"a"_s), call.at(u"b"_s)));
    else if (atB == "folder"_L1)
        QVERIFY(QDir().mkpath(call.at(u"b"_s)));
    if (encoderInC)
        call.putEncoder(u"c"_s);
    call.setPath(path);

    QCOMPARE(call.run({u"fake:exit=3"_s}), exitCode);
    QCOMPARE(call.process().readAllStandardError(), exitCode == 127 ? noOtherEncoder() : QByteArray());
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
}

CORVANE_TEST(tst_AirCall, QCoreApplication)
#include "tst_AirCall.moc"
