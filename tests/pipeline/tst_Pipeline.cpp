#include "pipeline/Pipeline.h"
#include "tests/support/TestSupport.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_Pipeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void goesOnAirAndStops();
};

void tst_Pipeline::goesOnAirAndStops()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"stats frame="_s); }));
    pipeline.stop();

    const QStringList &events = recorder.events();
    QCOMPARE(events.at(0), u"state starting"_s);
    QVERIFY(events.at(1).startsWith(u"log ffmpeg -hide_banner -loglevel warning -stats"_s));
    QCOMPARE(events.at(2), u"state running"_s);
    QVERIFY(events.at(3).startsWith(u"log ffmpeg rodando (pid "_s));
    QCOMPARE(events.last(), u"state stopped"_s);
    QCOMPARE(pipeline.telemetry().fps, 30.0);
}

QTEST_GUILESS_MAIN(tst_Pipeline)
#include "tst_Pipeline.moc"
