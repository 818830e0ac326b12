#include "engine/Engine.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"
#include "tests/update/UpdateTestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// When a staged update may be applied, and what the guardian then finds.
class tst_UpdateApply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void nothingStaged();
    void applies_data();
    void applies();
    void requestFollowsTheStatus();
    void deferred();
    void byPipelineState_data();
    void byPipelineState();
    void afterTheStopTheButtonApplies();
    void requestCannotBeWritten();
    void earlierRequestIsEmptied();
    void again();
};

namespace {

const auto applying = u"aplicando update — reiniciando via guardião..."_s;
const auto deferral = u"transmissão ativa — update adiado (regra de ouro: não derrubar a stream)"_s;

QString request(const UpdateBench &bench)
{
    return bench.runtimeDir() + "/update/apply-now"_L1;
}

/// With 0.2.0 staged and nothing recorded since.
bool stage(UpdateBench &bench)
{
    bench.publish(u"0.2.0"_s, "a package");
    const bool staged = bench.check() && !bench.events.filter(u"readyToApply"_s).isEmpty();
    bench.events.clear();
    return staged;
}

} // namespace

void tst_UpdateApply::initTestCase()
{
    if (const QString problem = tlsProblem(); !problem.isEmpty())
        QSKIP(qPrintable(problem));
    trustTestAuthority();
}

void tst_UpdateApply::init()
{
    pinKey({});
}

void tst_UpdateApply::nothingStaged()
{
    UpdateBench bench;
    bool asked = false;
    bench.updater.isStreamActive = [&] { return asked = true; };
    const Application application = apply(bench.updater);

    QVERIFY(!application.answer);
    QVERIFY(!application.quits);
    QVERIFY(!asked);
    QCOMPARE(bench.events, QStringList({u"changed"_s, u"log [update] nenhum update staged"_s}));
    QCOMPARE(bench.updater.status(), u"nenhum update staged"_s);
    QVERIFY(!QFile::exists(bench.runtimeDir()));
}

void tst_UpdateApply::applies_data()
{
    QTest::addColumn<bool>("filled");

    QTest::newRow("nobody to ask counts as no stream") << false;
    QTest::newRow("no stream") << true;
}

void tst_UpdateApply::applies()
{
    QFETCH(const bool, filled);

    UpdateBench bench;
    QVERIFY(stage(bench));
    if (filled)
        bench.updater.isStreamActive = [] { return false; };
    const Application application = apply(bench.updater);

    QVERIFY(application.answer);
    QVERIFY(application.quits);
    QCOMPARE(bench.events, QStringList({u"changed 0.2.0 available"_s, u"log [update] "_s + applying}));
    QCOMPARE(bench.updater.status(), applying);
    QVERIFY(QFileInfo(request(bench)).isFile());
    QCOMPARE(QFileInfo(request(bench)).size(), 0);
    QCOMPARE(bench.files(), QStringList({u"runtime/update/CORVANE-0.2.0.zip"_s, u"runtime/update/apply-now"_s,
                                         u"runtime/update/update-ready.json"_s}));
}

void tst_UpdateApply::requestFollowsTheStatus()
{
    UpdateBench bench;
    QVERIFY(stage(bench));
    bool early = true;
    connect(&bench.updater, &UpdateChecker::logLine, this, [&] { early = QFile::exists(request(bench)); });
    QVERIFY(apply(bench.updater).answer);
    QVERIFY(!early);
}

void tst_UpdateApply::deferred()
{
    UpdateBench bench;
    bench.updater.isStreamActive = [] { return true; };
    // As the program has it: applied as soon as it is staged, if it may be.
    QList<bool> answers;
    connect(&bench.updater, &UpdateChecker::readyToApply, &bench.updater,
            [&] { answers << bench.updater.applyIfSafe(); });
    bench.publish(u"0.2.0"_s, "a package");
    QVERIFY(bench.check());

    QCOMPARE(answers, QList<bool>{false});
    QCOMPARE(bench.events.mid(bench.events.size() - 3),
             QStringList({u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s, u"changed 0.2.0 available"_s,
                          u"log [update] "_s + deferral}));
    QVERIFY(bench.updater.updateAvailable());
    QCOMPARE(bench.events.filter(u"checkFailed"_s), QStringList());
    QVERIFY(!QFile::exists(request(bench)));

    const Application application = apply(bench.updater);
    QVERIFY(!application.answer);
    QVERIFY(!application.quits);
    QVERIFY(!QFile::exists(request(bench)));
}

void tst_UpdateApply::byPipelineState_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("steps");
    QTest::addColumn<bool>("launchable"); // or the pipeline stays where the launch left it
    QTest::addColumn<bool>("active");

    QTest::newRow("stopped") << u"stopped"_s << QString() << true << false;
    QTest::newRow("starting") << u"starting"_s << u"progress"_s << false << true;
    QTest::newRow("running") << u"running"_s << u"progress"_s << true << true;
    QTest::newRow("failed, and waiting to restart") << u"failed"_s << u"exit=3"_s << true << false;
}

void tst_UpdateApply::byPipelineState()
{
    QFETCH(const QString, state);
    QFETCH(const QString, steps);
    QFETCH(const bool, launchable);
    QFETCH(const bool, active);

    UpdateBench bench;
    QVERIFY(stage(bench));
    ToolPath tools;
    const QString ffmpeg = tools.addFakeFfmpeg();
    Engine engine;
    bench.updater.isStreamActive = [&engine] { return engine.anyPipelineTransmitting(); };
    const QString id = engine.addPipeline(u"Teste"_s);
    engine.addRtmpOutput(id, "fake:"_L1 + steps);
    if (!launchable)
        QVERIFY(QFile::remove(ffmpeg));
    const auto shown = [&] { return engine.pipelines().constFirst().toMap().value(u"state"_s).toString(); };
    if (!steps.isEmpty()) {
        engine.startPipeline(id);
        QVERIFY(waitUntil([&] { return shown() == state; }));
    }
    QCOMPARE(shown(), state);

    // In one go: an answer holds until the event loop has its turn.
    QCOMPARE(bench.updater.isStreamActive(), active);
    QCOMPARE(bench.updater.applyIfSafe(), !active);
    QCOMPARE(bench.updater.status(), active ? deferral : applying);
    QCOMPARE(QFile::exists(request(bench)), !active);
    QCOMPARE(shown(), state);
}

void tst_UpdateApply::afterTheStopTheButtonApplies()
{
    UpdateBench bench;
    ToolPath tools;
    tools.addFakeFfmpeg();
    Engine engine;
    bench.updater.isStreamActive = [&engine] { return engine.anyPipelineTransmitting(); };
    connect(&bench.updater, &UpdateChecker::readyToApply, &bench.updater,
            [&] { bench.updater.applyIfSafe(); });
    const QString id = engine.addPipeline(u"Teste"_s);
    engine.addRtmpOutput(id, u"fake:progress"_s);
    engine.startPipeline(id);
    QVERIFY(waitUntil([&] { return engine.anyPipelineTransmitting(); }));
    QVERIFY(stage(bench));
    QCOMPARE(bench.updater.status(), deferral);

    engine.stopPipeline(id);
    QVERIFY(waitUntil([&] { return !engine.anyPipelineTransmitting(); }));
    passTimersOf(50);
    QCOMPARE(bench.updater.status(), deferral); // nothing happens by itself
    QVERIFY(!QFile::exists(request(bench)));

    const Application application = apply(bench.updater);
    QVERIFY(application.answer);
    QVERIFY(application.quits);
    QVERIFY(QFile::exists(request(bench)));
}

void tst_UpdateApply::requestCannotBeWritten()
{
    UpdateBench bench;
    QVERIFY(stage(bench));
    QVERIFY(QDir().mkpath(request(bench)));
    const Application application = apply(bench.updater);

    // The program ends all the same, and no update follows.
    QVERIFY(application.answer);
    QVERIFY(application.quits);
    QVERIFY(QFileInfo(request(bench)).isDir());
    QCOMPARE(bench.updater.status(), applying);
}

void tst_UpdateApply::earlierRequestIsEmptied()
{
    UpdateBench bench;
    QVERIFY(stage(bench));
    QFile earlier(request(bench));
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write("not empty");
    earlier.close();
    QVERIFY(apply(bench.updater).answer);
    QCOMPARE(QFileInfo(request(bench)).size(), 0);
}

void tst_UpdateApply::again()
{
    // Nothing leads back from staged: the second call is as good as the first.
    UpdateBench bench;
    QVERIFY(stage(bench));
    QVERIFY(apply(bench.updater).answer);
    QVERIFY(QFile::remove(request(bench)));
    QVERIFY(apply(bench.updater).answer);
    QVERIFY(QFile::exists(request(bench)));
}

CORVANE_TEST(tst_UpdateApply, QCoreApplication)
#include "tst_UpdateApply.moc"
