#include "engine/host/EnvironmentProbe.h"
#include "engine/host/ToolResolver.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Parsing of an ffmpeg's listings, and the result for one that misbehaves.
class tst_EnvironmentProbe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsEncoders_data();
    void readsEncoders();
    void readsProtocols_data();
    void readsProtocols();
    void runsBothQuestions_data();
    void runsBothQuestions();
    void asksInTheseWords();
    void givesUpOnAnFfmpegThatHangs();
    void worksOnNothingElseWithoutFfmpeg();
    void takesAnFfmpegThatCannotStartForSilent();
    void summarises_data();
    void summarises();
};

namespace {

const QStringList allEncoders{u"libx264"_s,           u"libx265"_s,  u"h264_nvenc"_s, u"hevc_nvenc"_s,
                              u"av1_nvenc"_s,         u"h264_qsv"_s, u"hevc_qsv"_s,   u"av1_qsv"_s,
                              u"h264_amf"_s,          u"hevc_amf"_s, u"av1_amf"_s,    u"h264_videotoolbox"_s,
                              u"hevc_videotoolbox"_s, u"libsvtav1"_s};

} // namespace

void tst_EnvironmentProbe::readsEncoders_data()
{
    QTest::addColumn<QString>("listing");
    QTest::addColumn<QStringList>("encoders");

    QTest::newRow("nothing") << u""_s << QStringList();
    QTest::newRow("no known name") << u" V..... mpeg4  MPEG-4\n A..... aac\n"_s << QStringList();
    QTest::newRow("a row of the table")
        << u" V....D libx264              libx264 H.264 (codec h264)\n"_s << QStringList{u"libx264"_s};
    QTest::newRow("a prefix of another name counts")
        << u" V....D libx264rgb\n"_s << QStringList{u"libx264"_s};
    QTest::newRow("a part of another name counts") << u"xx_h264_qsv_yy"_s << QStringList{u"h264_qsv"_s};
    QTest::newRow("in a description it counts")
        << u" V..... foo  uses libsvtav1 within\n"_s << QStringList{u"libsvtav1"_s};
    QTest::newRow("capitals do not") << u"LIBX264 H264_NVENC\n"_s << QStringList();
    QTest::newRow("order is ours, not the listing's")
        << u"libsvtav1 hevc_amf av1_nvenc libx265 libx264"_s
        << QStringList{u"libx264"_s, u"libx265"_s, u"av1_nvenc"_s, u"hevc_amf"_s, u"libsvtav1"_s};
    QTest::newRow("each once") << u"libx264\nlibx264\nlibx264rgb\n"_s << QStringList{u"libx264"_s};
    QTest::newRow("one that is not looked for")
        << u"av1_videotoolbox h264_vaapi hevc_mf\n"_s << QStringList();
    QTest::newRow("all") << QStringList(allEncoders.rbegin(), allEncoders.rend()).join(u'\n') << allEncoders;
}

void tst_EnvironmentProbe::readsEncoders()
{
    QFETCH(QString, listing);
    QTEST(encodersIn(listing), "encoders");
}

void tst_EnvironmentProbe::readsProtocols_data()
{
    QTest::addColumn<QString>("listing");
    QTest::addColumn<bool>("srt");

    QTest::newRow("nothing") << u""_s << false;
    QTest::newRow("the name alone") << u"srt"_s << true;
    QTest::newRow("blanks around it") << u"  srt  "_s << true;
    QTest::newRow("tabs and a carriage return around it") << u"\tsrt\t\r\n"_s << true;
    QTest::newRow("srtp is another protocol") << u"Input:\n  srtp\nOutput:\n  srtp\n"_s << false;
    QTest::newRow("librist is another protocol") << u"  librist\n"_s << false;
    QTest::newRow("two words on a line") << u"  srt srtp\n"_s << false;
    QTest::newRow("capitals") << u"  SRT\n"_s << false;
    QTest::newRow("among the inputs only") << u"Input:\n  file\n  srt\nOutput:\n  file\n"_s << true;
    QTest::newRow("among the outputs only") << u"Input:\n  file\nOutput:\n  file\n  srt\n"_s << true;
    QTest::newRow("last line without an end") << u"Output:\n  srt"_s << true;
    QTest::newRow("a carriage return is no line end") << u"rtmp\rsrt\n"_s << false;
}

void tst_EnvironmentProbe::readsProtocols()
{
    QFETCH(QString, listing);
    QTEST(listsSrtProtocol(listing), "srt");
}

void tst_EnvironmentProbe::runsBothQuestions_data()
{
    QTest::addColumn<QByteArray>("encoders");
    QTest::addColumn<QByteArray>("protocols");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QStringList>("found");
    QTest::addColumn<bool>("srt");

    const QByteArray x264 = " V....D libx264\n";
    const QByteArray srt = "Output:\n  srt\n";
    const QStringList x264Found{u"libx264"_s};
    QTest::newRow("both answered") << x264 << srt << QByteArray() << x264Found << true;
    QTest::newRow("no encoders") << QByteArray() << srt << QByteArray() << QStringList() << true;
    QTest::newRow("no protocols") << x264 << QByteArray() << QByteArray() << x264Found << false;
    QTest::newRow("each question has its own answer")
        << srt << x264 << QByteArray() << QStringList() << false;
    QTest::newRow("the exit code is not looked at")
        << x264 << srt << QByteArray("exit1") << x264Found << true;
    QTest::newRow("a crash behind the answer isn't either")
        << x264 << srt << QByteArray("crash") << x264Found << true;
    QTest::newRow("standard error is no answer")
        << x264 << srt << QByteArray("stderr") << QStringList() << false;
    QTest::newRow("bytes that are no UTF-8")
        << "\xff\xfe\n" + x264 << "\xc3\x28\n" + srt << QByteArray() << x264Found << true;
    QTest::newRow("more than a pipe holds") << x264 << srt << QByteArray("long") << x264Found << true;
}

void tst_EnvironmentProbe::runsBothQuestions()
{
    QFETCH(QByteArray, encoders);
    QFETCH(QByteArray, protocols);
    QFETCH(QByteArray, mode);

    ToolPath path;
    const QString ffmpeg = path.addFakeFfmpeg(encoders, protocols);
    qputenv("FAKE_FFMPEG_PROBE", mode);
    const EnvironmentProbe found = EnvironmentProbe::run();
    QCOMPARE(found.ffmpegPath, ffmpeg);
    QTEST(found.availableEncoders, "found");
    QTEST(found.ffmpegHasSrt, "srt");
    QCOMPARE(found.srtAvailable, found.ffmpegHasSrt);
    QVERIFY(!found.ffmpegHasNdi);
    QVERIFY(!found.srtlaAvailable);
}

void tst_EnvironmentProbe::asksInTheseWords()
{
    ToolPath path;
    path.addFakeFfmpeg();
    const QString asked = path.filePath(u"asked"_s);
    qputenv("FAKE_FFMPEG_ASKED", QFile::encodeName(asked));

    static_cast<void>(EnvironmentProbe::run());

    QCOMPARE(fileLines(asked), QStringList({u"-hide_banner -encoders"_s, u"-hide_banner -protocols"_s}));
}

void tst_EnvironmentProbe::givesUpOnAnFfmpegThatHangs()
{
    ToolPath path;
    const QString ffmpeg = path.addFakeFfmpeg("libx264\n", "srt\n");
    qputenv("FAKE_FFMPEG_PROBE", "hang");
    QTest::failOnWarning(QRegularExpression(u"Destroyed while process"_s));
    QElapsedTimer clock;
    clock.start();
    QList<bool> workedBesideFfmpeg;

    const EnvironmentProbe found =
        EnvironmentProbe::run([&] { workedBesideFfmpeg << !childProcesses().isEmpty(); });

    QCOMPARE(workedBesideFfmpeg, QList<bool>{true});
    // Two waits of 5000 ms, and no third one for the exit of the children.
    QVERIFY2(clock.elapsed() >= 9900, qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(clock.elapsed() < 40000, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(childProcesses(), QList<qint64>()); // both are ended
    QCOMPARE(found.ffmpegPath, ffmpeg);
    QCOMPARE(found.availableEncoders, QStringList());
    QVERIFY(!found.ffmpegHasSrt);
    QVERIFY(!found.srtAvailable);
}

void tst_EnvironmentProbe::worksOnNothingElseWithoutFfmpeg()
{
    const ToolPath path;
    if (!resolveTool(u"ffmpeg"_s).isEmpty())
        QSKIP("there is an ffmpeg where the search looks besides PATH");

    const EnvironmentProbe found = EnvironmentProbe::run([] { QFAIL("there is no ffmpeg to wait for"); });

    QCOMPARE(found.ffmpegPath, QString());
}

void tst_EnvironmentProbe::takesAnFfmpegThatCannotStartForSilent()
{
    ToolPath path;
    const QString ffmpeg = path.addUnstartable(u"ffmpeg"_s);
    const EnvironmentProbe found = EnvironmentProbe::run();
    QCOMPARE(found.ffmpegPath, ffmpeg);
    QCOMPARE(found.availableEncoders, QStringList());
    QVERIFY(!found.ffmpegHasSrt);
}

void tst_EnvironmentProbe::summarises_data()
{
    QTest::addColumn<EnvironmentProbe>("probe");
    QTest::addColumn<QString>("summary");

    QTest::newRow("a bare machine")
        << EnvironmentProbe{}
        << u"ffmpeg=NÃO ENCONTRADO | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders="_s;
    QTest::newRow("everything")
        << EnvironmentProbe{u"/usr/bin/ffmpeg"_s, true, true, true, true, {u"libx264"_s, u"libx265"_s}}
        << u"ffmpeg=/usr/bin/ffmpeg | NDI=sim | SRT(srt-live-transmit)=sim | srtla=sim | encoders=libx264, libx265"_s;
    QTest::newRow("NDI alone")
        << EnvironmentProbe{u"f"_s, true, false, false, false, {}}
        << u"ffmpeg=f | NDI=sim | SRT(srt-live-transmit)=não | srtla=não | encoders="_s;
    QTest::newRow("an ffmpeg with SRT is not what the label says")
        << EnvironmentProbe{u"f"_s, false, true, false, false, {u"libx264"_s}}
        << u"ffmpeg=f | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders=libx264"_s;
    QTest::newRow("SRT alone")
        << EnvironmentProbe{u""_s, false, false, true, false, {}}
        << u"ffmpeg=NÃO ENCONTRADO | NDI=não | SRT(srt-live-transmit)=sim | srtla=não | encoders="_s;
    QTest::newRow("bonding alone")
        << EnvironmentProbe{u""_s, false, false, false, true, {}}
        << u"ffmpeg=NÃO ENCONTRADO | NDI=não | SRT(srt-live-transmit)=não | srtla=sim | encoders="_s;
    QTest::newRow("a path with place markers")
        << EnvironmentProbe{u"/a b/%2/%5/ffmpeg"_s, false, false, false, false, {u"libx264"_s}}
        << u"ffmpeg=/a b/%2/%5/ffmpeg | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders=libx264"_s;
}

void tst_EnvironmentProbe::summarises()
{
    QFETCH(EnvironmentProbe, probe);
    QTEST(probe.summary(), "summary");
}

CORVANE_TEST(tst_EnvironmentProbe, QCoreApplication)
#include "tst_EnvironmentProbe.moc"
