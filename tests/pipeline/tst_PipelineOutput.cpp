#include "pipeline/Pipeline.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Treatment of the bytes that ffmpeg writes.
class tst_PipelineOutput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void standardError_data();
    void standardError();
    void lineInTwoWritesCountsAsTwo();
    void bitrateNotKnownKeepsTheLast();
    void standardOutputIsNotRead();
    void floodArrivesWhole();

private:
    /// Runs a child that takes `steps` once the pipeline is `Running` and then exits with 0. Returns the
    /// events in between.
    static QStringList said(Pipeline &pipeline, const QString &sign);
    static PipelineConfig config(const QString &sign, const QString &steps);
};

PipelineConfig tst_PipelineOutput::config(const QString &sign, const QString &steps)
{
    return fakeConfig(u"await=%1,%2,exit=0"_s.arg(stepText(sign.toUtf8()), steps));
}

QStringList tst_PipelineOutput::said(Pipeline &pipeline, const QString &sign)
{
    Recorder recorder(pipeline);
    pipeline.start();
    waitUntil([&] { return pipeline.state() == Pipeline::State::Running; });
    recorder.clear();
    createFile(sign);
    waitUntil([&] { return recorder.contains(u"state stopped"_s); });
    QStringList events = recorder.events();
    events.removeAll(u"telemetry"_s);
    return events;
}

void tst_PipelineOutput::standardError_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("events");

    QTest::newRow("progress ended by a carriage return")
        << "frame=  1 fps= 30 bitrate= 100.0kbits/s drop=0    \r"_ba
        << QStringList{u"stats frame=  1 fps= 30 bitrate= 100.0kbits/s drop=0"_s};
    QTest::newRow("progress ended by a line feed")
        << "frame=1 fps=30\n"_ba << QStringList{u"stats frame=1 fps=30"_s};
    QTest::newRow("bit rate without a frame")
        << "size=N/A bitrate=N/A\n"_ba << QStringList{u"stats size=N/A bitrate=N/A"_s};
    QTest::newRow("same line three times: nothing is thinned out")
        << "frame=1 fps=30\nframe=1 fps=30\nframe=1 fps=30\n"_ba
        << QStringList{u"stats frame=1 fps=30"_s, u"stats frame=1 fps=30"_s, u"stats frame=1 fps=30"_s};
    QTest::newRow("warning") << "[flv @ 0x1] Failed to update header\n"_ba
                             << QStringList{u"log [flv @ 0x1] Failed to update header"_s};
    QTest::newRow("other figures alone") << "fps=30 drop=3\n"_ba << QStringList{u"log fps=30 drop=3"_s};
    QTest::newRow("capitals are no mark")
        << "FRAME=1 Bitrate=2\n"_ba << QStringList{u"log FRAME=1 Bitrate=2"_s};
    QTest::newRow("blanks around") << " \t text \t \n"_ba << QStringList{u"log text"_s};
    QTest::newRow("no line end") << "text"_ba << QStringList{u"log text"_s};
    QTest::newRow("several lines") << "one\ntwo\nframe=3\nfour\n"_ba
                                   << QStringList{u"log one"_s, u"log two"_s, u"stats frame=3"_s,
                                                  u"log four"_s};
    QTest::newRow("line ends of Windows") << "one\r\ntwo\r\n"_ba << QStringList{u"log one"_s, u"log two"_s};
    QTest::newRow("empty lines are left out")
        << "\n\none\n\n\ntwo\n\n"_ba << QStringList{u"log one"_s, u"log two"_s};
    QTest::newRow("nothing but line feeds") << "\n\n\n"_ba << QStringList();
    QTest::newRow("lone carriage return is an empty line")
        << "one\n\r\ntwo\n"_ba << QStringList{u"log one"_s, u"log "_s, u"log two"_s};
    QTest::newRow("carriage return without a line feed") << "\r"_ba << QStringList{u"log "_s};
    QTest::newRow("blanks alone are an empty line") << "  \n"_ba << QStringList{u"log "_s};
    QTest::newRow("several updates in one read are one part")
        << "frame=1 fps=10 \rframe=2 fps=20 \r"_ba << QStringList{u"stats frame=1 fps=10 \rframe=2 fps=20"_s};
    QTest::newRow("warning behind an update goes with it")
        << "frame=1 fps=10 \r[flv] warning\nnext\n"_ba
        << QStringList{u"stats frame=1 fps=10 \r[flv] warning"_s, u"log next"_s};
    QTest::newRow("accents") << "opção inválida\n"_ba << QStringList{u"log opção inválida"_s};
    QTest::newRow("invalid bytes") << "\xff\xfe!\n"_ba << QStringList{u"log \uFFFD\uFFFD!"_s};
    QTest::newRow("half a letter") << "a\xc3\nb\n"_ba << QStringList{u"log a\uFFFD"_s, u"log b"_s};
    QTest::newRow("invalid bytes in a progress line")
        << "frame=1 \xff fps=30\n"_ba << QStringList{u"stats frame=1 \uFFFD fps=30"_s};
}

void tst_PipelineOutput::standardError()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const QStringList, events);
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    Pipeline pipeline(config(sign, "stderr="_L1 + stepText(bytes)), fakeFfmpeg(), false);

    QCOMPARE(said(pipeline, sign), events + QStringList{u"state stopped"_s});
}

void tst_PipelineOutput::lineInTwoWritesCountsAsTwo()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    const QString second = dir.filePath(u"second"_s);
    const QString steps = u"stderr=%1,await=%2,stderr=%3"_s.arg(
        stepText("frame=1 fps="), stepText(second.toUtf8()), stepText("25 drop=3\n"));
    Pipeline pipeline(config(first, steps), fakeFfmpeg(), false);
    connect(&pipeline, &Pipeline::statsChanged, this, [&] { createFile(second); });

    QCOMPARE(said(pipeline, first),
             QStringList({u"stats frame=1 fps="_s, u"log 25 drop=3"_s, u"state stopped"_s}));
    QCOMPARE(pipeline.telemetry().fps, 0.0);
    QCOMPARE(pipeline.telemetry().dropped, 0);
    QCOMPARE(pipeline.telemetry().valid, false);
}

void tst_PipelineOutput::bitrateNotKnownKeepsTheLast()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    const QByteArray bytes =
        "frame=1 fps=30 bitrate=5012.3kbits/s drop=4\nframe=2 fps=0.0 bitrate=N/A drop=1\n";
    Pipeline pipeline(config(sign, "stderr="_L1 + stepText(bytes)), fakeFfmpeg(), false);

    QCOMPARE(said(pipeline, sign),
             QStringList({u"stats frame=1 fps=30 bitrate=5012.3kbits/s drop=4"_s,
                          u"stats frame=2 fps=0.0 bitrate=N/A drop=1"_s, u"state stopped"_s}));
    QCOMPARE(pipeline.telemetry().fps, 0.0);
    QCOMPARE(pipeline.telemetry().bitrateKbps, 5012.3);
    QCOMPARE(pipeline.telemetry().dropped, 1);
}

void tst_PipelineOutput::standardOutputIsNotRead()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    const QString steps =
        u"stdout=%1,stderr=%2"_s.arg(stepText("frame=1 fps=99\ntext\n"), stepText("heard\n"));
    Pipeline pipeline(config(sign, steps), fakeFfmpeg(), false);

    QCOMPARE(said(pipeline, sign), QStringList({u"log heard"_s, u"state stopped"_s}));
    QCOMPARE(pipeline.telemetry().valid, false);
}

void tst_PipelineOutput::floodArrivesWhole()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    Pipeline pipeline(config(sign, u"flood=20000"_s), fakeFfmpeg(), false);

    const QStringList events = said(pipeline, sign);
    QCOMPARE(events.last(), u"state stopped"_s);

    // A read may end within a line, which makes two of it and trims the cut: compare without blanks.
    QString expected;
    for (int line = 1; line <= 20000; ++line)
        expected += u"[fake@0x1]warningnumber%1ofaflood"_s.arg(line);
    QString heard;
    for (const QString &event : events.first(events.size() - 1)) {
        QVERIFY(event.startsWith("log "_L1));
        heard += event.sliced(4).remove(u' ');
    }
    QVERIFY(heard == expected);
}

CORVANE_TEST(tst_PipelineOutput, QCoreApplication)
#include "tst_PipelineOutput.moc"
