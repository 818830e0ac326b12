#include "pipeline/Pipeline.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Nothing is left behind: no process, no descriptor, no object.
class tst_PipelineLeak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsAndStops();
    void automaticRestarts();
};

namespace {

void cycle(Pipeline &pipeline)
{
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    pipeline.stop();
}

} // namespace

void tst_PipelineLeak::startsAndStops()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    const auto disposed = [&] { return pipeline.findChildren<QProcess *>().isEmpty(); };
    cycle(pipeline); // objects created once exist from here on
    QVERIFY(waitUntil(disposed));
    const qsizetype descriptors = openDescriptors();
    const qsizetype objects = pipeline.children().size();

    for (int i = 0; i < 200; ++i)
        cycle(pipeline);
    QVERIFY(waitUntil(disposed));

    QCOMPARE(childProcesses(), QList<qint64>());
    QCOMPARE(openDescriptors(), descriptors);
    QCOMPARE(pipeline.children().size(), objects);
}

void tst_PipelineLeak::automaticRestarts()
{
    const auto restart = [] {
        PipelineConfig config = fakeConfig(u"exit=3"_s);
        config.restart.initialBackoffMs = 0;
        config.restart.maxRestartsInWindow = 20;
        auto pipeline = std::make_unique<Pipeline>(config, fakeFfmpeg(), false);
        const Recorder recorder(*pipeline);
        pipeline->start();
        QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit "_s); }));
        QCOMPARE(recorder.count(u"state failed"_s), 21);
        QCOMPARE(childProcesses(), QList<qint64>()); // dead objects may stay, dead processes may not
    };
    restart();
    const qsizetype descriptors = openDescriptors();

    restart();

    QCOMPARE(openDescriptors(), descriptors);
}

CORVANE_TEST(tst_PipelineLeak, QCoreApplication)
#include "tst_PipelineLeak.moc"
