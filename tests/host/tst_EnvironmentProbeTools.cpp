#include "engine/Engine.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Tools of a machine, from the bare one to one with everything, up to the line in the log.
class tst_EnvironmentProbeTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsTools_data();
    void findsTools();
};

void tst_EnvironmentProbeTools::findsTools_data()
{
    QTest::addColumn<bool>("ffmpeg");
    QTest::addColumn<QByteArray>("protocols");
    QTest::addColumn<QStringList>("tools");
    QTest::addColumn<bool>("srtAvailable");
    QTest::addColumn<bool>("srtlaAvailable");
    QTest::addColumn<QString>("rest"); // of the summary, behind the path

    const QByteArray srt = "Output:\n  srt\n";
    const QByteArray none = "Output:\n  srtp\n";
    const QString transmit = u"srt-live-transmit"_s;
    const QString bond = u"srtla_send"_s;
    const auto row = [](const char *name, bool ffmpeg, const QByteArray &protocols, const QStringList &tools,
                        bool srtAvailable, bool srtlaAvailable, const QString &rest) {
        QTest::newRow(name) << ffmpeg << protocols << tools << srtAvailable << srtlaAvailable << rest;
    };
    row("a bare machine", false, none, {}, false, false,
        u" | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders="_s);
    row("transmit tool without ffmpeg", false, none, {transmit}, true, false,
        u" | NDI=não | SRT(srt-live-transmit)=sim | srtla=não | encoders="_s);
    row("bonding tool without ffmpeg", false, none, {bond}, false, true,
        u" | NDI=não | SRT(srt-live-transmit)=não | srtla=sim | encoders="_s);
    row("ffmpeg without SRT", true, none, {}, false, false,
        u" | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders=libx264, libsvtav1"_s);
    row("ffmpeg without SRT, transmit tool", true, none, {transmit}, true, false,
        u" | NDI=não | SRT(srt-live-transmit)=sim | srtla=não | encoders=libx264, libsvtav1"_s);
    row("ffmpeg with SRT", true, srt, {}, true, false,
        u" | NDI=não | SRT(srt-live-transmit)=sim | srtla=não | encoders=libx264, libsvtav1"_s);
    row("everything", true, srt, {transmit, bond}, true, true,
        u" | NDI=não | SRT(srt-live-transmit)=sim | srtla=sim | encoders=libx264, libsvtav1"_s);
}

void tst_EnvironmentProbeTools::findsTools()
{
    QFETCH(bool, ffmpeg);
    QFETCH(QByteArray, protocols);
    QFETCH(QStringList, tools);
    QFETCH(QString, rest);

    ToolPath path;
    const QString ffmpegPath =
        ffmpeg ? path.addFakeFfmpeg(" V....D libsvtav1\n V....D libx264\n", protocols) : QString();
    for (const QString &name : tools)
        QVERIFY(!path.addCopy(name, fakeFfmpeg()).isEmpty());

    const Engine engine;
    QCOMPARE(engine.ffmpegPath(), ffmpegPath);
    QTEST(engine.srtAvailable(), "srtAvailable");
    QTEST(engine.srtlaAvailable(), "srtlaAvailable");
    QVERIFY(!engine.ffmpegHasNdi());
    QCOMPARE(engine.availableEncoders(),
             ffmpeg ? QStringList({u"libx264"_s, u"libsvtav1"_s}) : QStringList());

    const QString line = u"ffmpeg="_s + (ffmpeg ? ffmpegPath : u"NÃO ENCONTRADO"_s) + rest;
    QCOMPARE(engine.log().section(u'\n', 0, 0).sliced(9), line);
    QCOMPARE(engine.log().count(line), 1);
}

CORVANE_TEST(tst_EnvironmentProbeTools, QCoreApplication)
#include "tst_EnvironmentProbeTools.moc"
