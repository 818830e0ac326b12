#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

using Edit = std::function<void(Engine &, const QString &id)>;

const QString heldLine = u"no-sleep ATIVO (transmitindo)"_s;
const QString releasedLine = u"no-sleep liberado (ocioso)"_s;

QStringList keepAwakeLines(const EngineBench &bench)
{
    return bench.logLines().filter(u"no-sleep"_s);
}

} // namespace

/// The registry while children run: start, stop, edits that end a transmission, and keep-awake.
class tst_EngineRunning : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startAndStopEmitNothingOfTheirOwn();
    void startsAllFrontToBack();
    void editEndsATransmission_data();
    void editEndsATransmission();
    void editShowsTheNewObjectWhileTheOldOneStops();
    void logsWhatTheOldObjectSaysWhileItStops();
    void removalEndsATransmission();
    void clearingTheOutputsEndsATransmission();
    void rejectedEditLeavesATransmissionAlone();
    void handsOverAUrlAsOneArgument_data();
    void handsOverAUrlAsOneArgument();
    void keepsAwakeOnceForTwoPipelines();
    void keepAwakeEndsWithAFailedStart();
    void keepAwakePausesBetweenRestarts();
    void keepAwakeEndsWithAnEdit();
};

void tst_EngineRunning::startAndStopEmitNothingOfTheirOwn()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    bench.call("stopPipeline", id); // stopped already
    bench.call("stopAll");
    QCOMPARE(changed.size(), 0);

    bench.call("startPipeline", id); // without outputs: "starting", then "failed"
    QCOMPARE(changed.size(), 2);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"failed"_s});
    QVERIFY(bench.logHas(u"ERRO: Pipeline sem saídas habilitadas"_s));

    bench.call("stopPipeline", id);
    QCOMPARE(changed.size(), 3);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
}

void tst_EngineRunning::startsAllFrontToBack()
{
    EngineBench bench;
    for (const QString &text : {u"um"_s, u"dois"_s, u"três"_s})
        bench.addFake(text, u"stderr="_s + stepText(text.toUtf8() + '\n'));
    QStringList states;
    connect(&bench.engine, &Engine::pipelinesChanged, this,
            [&] { states << bench.column(u"state"_s).join(u' '); });
    bench->clearLog();

    QVERIFY(bench.call("startAll"));
    QCOMPARE(states.value(0), u"starting stopped stopped"_s);
    QCOMPARE(bench.logLines().filter(u"ffmpeg -hide_banner"_s).size(), 3);
    QVERIFY(bench->anyPipelineTransmitting());
    QVERIFY(waitUntil([&] {
        return bench.column(u"state"_s) == QStringList({u"running"_s, u"running"_s, u"running"_s});
    }));
    QVERIFY(waitUntil(
        [&] { return bench.logHas(u"um"_s) && bench.logHas(u"dois"_s) && bench.logHas(u"três"_s); }));

    states.clear();
    QVERIFY(bench.call("stopAll"));
    QCOMPARE(states, QStringList({u"stopped running running"_s, u"stopped stopped running"_s,
                                  u"stopped stopped stopped"_s}));
    QVERIFY(!bench->anyPipelineTransmitting());
}

void tst_EngineRunning::editEndsATransmission_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("outputs");

    const auto row = [](const char *tag, const Edit &edit, const QString &name, int outputs) {
        QTest::newRow(tag) << edit << name << outputs;
    };
    row(
        "rename", [](Engine &e, auto &id) { e.renamePipeline(id, u"novo"_s); }, u"novo"_s, 1);
    row(
        "an empty map", [](Engine &e, auto &id) { e.configureSource(id, {}); }, u"b"_s, 1);
    row(
        "an encoder value",
        [](Engine &e, auto &id) {
            e.configureEncoder(id, {{u"bitrate"_s, 1}});
        },
        u"b"_s, 1);
    row(
        "one more output", [](Engine &e, auto &id) { e.addRtmpOutput(id, u"x"_s); }, u"b"_s, 2);
    row(
        "a switch of an output", [](Engine &e, auto &id) { e.setOutputEnabled(id, 0, true); }, u"b"_s, 1);
    row(
        "removal of an output", [](Engine &e, auto &id) { e.removeOutput(id, 0); }, u"b"_s, 0);
}

void tst_EngineRunning::editEndsATransmission()
{
    QFETCH(Edit, edit);

    EngineBench bench;
    bench->addPipeline(u"a"_s);
    const QString id = bench.addFake(u"b"_s, u"progress"_s);
    bench->addPipeline(u"c"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"fps"_s).at(1) == u"30"_s; }));

    edit(bench.engine, id);

    const QVariantMap row = bench->pipelines().at(1).toMap();
    QCOMPARE(row.value(u"id"_s).toString(), id);
    QTEST(row.value(u"name"_s).toString(), "name");
    QTEST(row.value(u"outputs"_s).toInt(), "outputs");
    QCOMPARE(row.value(u"state"_s), QVariant(u"stopped"_s));
    QCOMPARE(row.value(u"fps"_s), QVariant(0.0));
    QVERIFY(!bench->anyPipelineTransmitting());

    // It stays stopped: no object of a former edit is left, and the only one there is stopped.
    QVERIFY(waitUntil([&] { return bench.livingPipelines() == 3; }));
    QCOMPARE(bench.column(u"state"_s), QStringList({u"stopped"_s, u"stopped"_s, u"stopped"_s}));
}

void tst_EngineRunning::editShowsTheNewObjectWhileTheOldOneStops()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));
    QStringList views;
    connect(&bench.engine, &Engine::pipelinesChanged, this,
            [&] { views << bench.column(u"name"_s).value(0) + u' ' + bench.column(u"state"_s).value(0); });

    bench->renamePipeline(id, u"b"_s);

    // The first comes from the old object as it stops, the second from the operation.
    QCOMPARE(views, QStringList({u"b stopped"_s, u"b stopped"_s}));
}

void tst_EngineRunning::logsWhatTheOldObjectSaysWhileItStops()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"quit-code=3,progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.logHas(u"[stats] "_s); }));
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    bench->clearLog();

    bench->renamePipeline(id, u"b"_s);

    QVERIFY(bench.logHas(u"ERRO: ffmpeg saiu (code=3, erro)"_s));
    QCOMPARE(changed.size(), 3); // "failed" and "stopped" of the old object, and the operation's own
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
}

void tst_EngineRunning::removalEndsATransmission()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"quit-code=5,progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.logHas(u"[stats] "_s); }));
    QStringList rows;
    connect(&bench.engine, &Engine::pipelinesChanged, this,
            [&] { rows << bench.column(u"state"_s).join(u' '); });

    bench.call("removePipeline", id);

    // It is stopped first and taken out then.
    QCOMPARE(rows, QStringList({u"failed"_s, u"stopped"_s, u""_s}));
    QVERIFY(bench.logHas(u"ERRO: ffmpeg saiu (code=5, erro)"_s));
    QVERIFY(!bench->anyPipelineTransmitting());
    QVERIFY(waitUntil([&] { return bench.livingPipelines() == 0; }));
}

void tst_EngineRunning::clearingTheOutputsEndsATransmission()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));
    bench.call("clearOutputs", id);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
    QCOMPARE(bench->outputsView(id), QVariantList());
}

void tst_EngineRunning::rejectedEditLeavesATransmissionAlone()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));
    const Pipeline *running = bench.pipeline(id);

    bench.call("removeOutput", id, -1);
    bench.call("removeOutput", id, 1);
    bench.call("setOutputEnabled", id, 1, false);
    bench.call("renamePipeline", u"deadbeef"_s, u"b"_s);

    QCOMPARE(bench.pipeline(id), running);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"running"_s});
    bench->clearLog();
    QVERIFY(waitUntil([&] { return bench.logHas(u"[stats] "_s); }));
}

void tst_EngineRunning::handsOverAUrlAsOneArgument_data()
{
    QTest::addColumn<QString>("tail");

    QTest::newRow("blanks") << u" a  b "_s;
    QTest::newRow("quotes") << u"\"a\" 'b' `c`"_s;
    QTest::newRow("backslashes") << u"\\a\\\\b\\"_s;
    QTest::newRow("for a shell") << u"$HOME $(id) ; | & > < * ? ~ # !"_s;
    QTest::newRow("like options") << u" -f flv -y"_s;
    QTest::newRow("accents") << u"transmissão 日本語 \U0001F3A5"_s;
    QTest::newRow("a long one") << QString(20000, u'x');
}

void tst_EngineRunning::handsOverAUrlAsOneArgument()
{
    QFETCH(QString, tail);

    QTemporaryDir dir;
    const QString seen = dir.filePath(u"args"_s);
    const QString url = u"fake:args=%1,stderr="_s.replace(u"%1"_s, stepText(QFile::encodeName(seen))) + tail;
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench.call("addRtmpOutput", id, url);
    bench->startPipeline(id);
    QStringList arguments;
    QVERIFY(waitUntil([&] {
        QFile file(seen);
        if (file.open(QIODevice::ReadOnly))
            arguments = QString::fromUtf8(file.readAll()).split(u'\n');
        return arguments.size() == 43; // 42, and the empty part after the last line feed
    }));
    QCOMPARE(arguments.at(41), url);
    QVERIFY(bench.logHas(url));
}

void tst_EngineRunning::keepsAwakeOnceForTwoPipelines()
{
    EngineBench bench;
    const QString first = bench.addFake(u"a"_s, u"progress"_s);
    const QString second = bench.addFake(u"b"_s, u"progress"_s);
    QCOMPARE(keepAwakeLines(bench), QStringList());

    bench->startPipeline(first);
    QCOMPARE(keepAwakeLines(bench), QStringList{heldLine});
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s).at(0) == u"running"_s; }));
    bench->startPipeline(second);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s).at(1) == u"running"_s; }));
    bench->stopPipeline(first);
    QCOMPARE(keepAwakeLines(bench), QStringList{heldLine});

    bench->stopPipeline(second);
    QCOMPARE(keepAwakeLines(bench), QStringList({heldLine, releasedLine}));
}

void tst_EngineRunning::keepAwakeEndsWithAFailedStart()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->startPipeline(id);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"failed"_s});
    QCOMPARE(keepAwakeLines(bench), QStringList({heldLine, releasedLine}));
    QVERIFY(!bench->anyPipelineTransmitting());
}

void tst_EngineRunning::keepAwakePausesBetweenRestarts()
{
    QTemporaryDir dir;
    const QString mark = stepText(QFile::encodeName(dir.filePath(u"once"_s)));
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"once=%1,exit=3,end,progress"_s.replace(u"%1"_s, mark));
    bench->startPipeline(id);

    QVERIFY(waitUntil([&] { return bench.logHas(u"[stats] "_s); }));
    const QString pause = u"auto-restart em 1000ms (tentativa 1 na janela)"_s;
    QStringList lines = bench.logLines();
    erase_if(lines, [&](const QString &line) { return line != pause && !line.startsWith(u"no-sleep"_s); });
    QCOMPARE(lines, QStringList({heldLine, releasedLine, pause, heldLine}));

    bench->stopPipeline(id);
    QCOMPARE(keepAwakeLines(bench), QStringList({heldLine, releasedLine, heldLine, releasedLine}));
}

void tst_EngineRunning::keepAwakeEndsWithAnEdit()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));
    bench->renamePipeline(id, u"b"_s);
    QCOMPARE(keepAwakeLines(bench), QStringList({heldLine, releasedLine}));
}

CORVANE_TEST(tst_EngineRunning, QCoreApplication)
#include "tst_EngineRunning.moc"
