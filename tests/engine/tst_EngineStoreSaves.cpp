#include "tests/engine/StoreTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

using Saving = std::function<void(Engine &, const QString &id)>;

// Secrets that an operator enters and no settings may ever contain.
const QString streamKey = u"chave-9f31c0"_s;
const QString passphrase = u"frase-secreta-77"_s;
const QString streamId = u"#!::r=canal-oculto"_s;
const QString receiver = u"bonding.oculto.example"_s;

/// A machine with one pipeline of one output; the store is emptied, so that a save shows.
struct Saved
{
    Saved()
    {
        bench.start();
        id = bench->addPipeline(u"a"_s);
        bench->addRtmpOutput(id, u"fake:progress"_s);
        bench.forget();
    }

    StoreBench bench;
    QString id;
};

} // namespace

/// Operations that save, the moment at which they do so, and the contents that never reach the settings.
class tst_EngineStoreSaves : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void saves_data();
    void saves();
    void doesNotSave_data();
    void doesNotSave();
    void doesNotSaveAtTheEnd();
    void showsNoSecret();
};

void tst_EngineStoreSaves::saves_data()
{
    QTest::addColumn<Saving>("operation");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");

    const auto row = [](const char *name, const Saving &operation, const char *key, const char *value) {
        QTest::newRow(name) << operation << QString::fromLatin1(key) << QString::fromLatin1(value);
    };
    row(
        "addPipeline", [](Engine &e, auto &) { e.addPipeline(u"b"_s); }, "2/name", "b");
    row(
        "removePipeline", [](Engine &e, auto &id) { e.removePipeline(id); }, "size", "0");
    row(
        "renamePipeline", [](Engine &e, auto &id) { e.renamePipeline(id, u"b"_s); }, "1/name", "b");
    row(
        "renamePipeline, nothing new", [](Engine &e, auto &id) { e.renamePipeline(id, u"a"_s); }, "1/name",
        "a");
    row(
        "configureSource",
        [](Engine &e, auto &id) {
            e.configureSource(id, {{u"uri"_s, u"u"_s}});
        },
        "1/sourceUri", "u");
    row(
        "configureSource, empty map", [](Engine &e, auto &id) { e.configureSource(id, {}); }, "1/sourceKind",
        "4");
    row(
        "configureSource, what isn't stored",
        [](Engine &e, auto &id) {
            e.configureSource(id, {{u"width"_s, 1}});
        },
        "size", "1");
    row(
        "configureEncoder",
        [](Engine &e, auto &id) {
            e.configureEncoder(id, {{u"bitrate"_s, 1}});
        },
        "1/bitrate", "1");
    row(
        "configureEncoder, empty map", [](Engine &e, auto &id) { e.configureEncoder(id, {}); }, "1/hw", "0");
    row(
        "addRtmpOutput", [](Engine &e, auto &id) { e.addRtmpOutput(id, u"u"_s); }, "1/outputs", "2");
    row(
        "addSrtOutput", [](Engine &e, auto &id) { e.addSrtOutput(id, u"u"_s, 1, u"p"_s); }, "1/outputs", "2");
    row(
        "addSrtOutputFull",
        [](Engine &e, auto &id) { e.addSrtOutputFull(id, u"u"_s, 1, u"p"_s, u"s"_s, 1, 1); }, "1/outputs",
        "2");
    row(
        "addSrtlaOutput", [](Engine &e, auto &id) { e.addSrtlaOutput(id, u"h"_s, 1); }, "1/outputs", "2");
    row(
        "clearOutputs", [](Engine &e, auto &id) { e.clearOutputs(id); }, "1/outputs", "0");
    row(
        "removeOutput", [](Engine &e, auto &id) { e.removeOutput(id, 0); }, "1/outputs", "0");
    row(
        "setOutputEnabled", [](Engine &e, auto &id) { e.setOutputEnabled(id, 0, false); }, "1/outputs", "1");
}

void tst_EngineStoreSaves::saves()
{
    QFETCH(Saving, operation);
    QFETCH(QString, key);

    Saved saved;
    // The save is the last step: a listener to the change finds a store without it.
    int changes = 0;
    bool savedBefore = false;
    connect(&saved.bench.engine(), &Engine::pipelinesChanged, this, [&] {
        ++changes;
        savedBefore = savedBefore || !saved.bench.isEmpty();
    });

    operation(saved.bench.engine(), saved.id);

    QCOMPARE(changes, 1);
    QVERIFY(!savedBefore);
    QVERIFY(!saved.bench.isEmpty()); // when the operation has returned
#ifndef Q_OS_WIN
    QVERIFY(!saved.bench.stored("size").isNull()); // in the file by then
#endif
    QTEST(saved.bench.value(key), "value");
}

void tst_EngineStoreSaves::doesNotSave_data()
{
    QTest::addColumn<Saving>("operation");

    const auto row = [](const char *name, const Saving &operation) { QTest::newRow(name) << operation; };
    const QString other = u"deadbeef"_s;
    row("startPipeline", [](Engine &e, auto &id) { e.startPipeline(id); });
    row("stopPipeline", [](Engine &e, auto &id) { e.stopPipeline(id); });
    row("start and stop", [](Engine &e, auto &id) {
        e.startPipeline(id);
        QVERIFY(waitUntil([&] { return e.pipelines().first().toMap().value(u"state"_s) == u"running"_s; }));
        e.stopPipeline(id);
    });
    row("startAll and stopAll", [](Engine &e, auto &) {
        e.startAll();
        e.stopAll();
    });
    row("removeOutput before the first", [](Engine &e, auto &id) { e.removeOutput(id, -1); });
    row("removeOutput behind the last", [](Engine &e, auto &id) { e.removeOutput(id, 1); });
    row("setOutputEnabled before the first", [](Engine &e, auto &id) { e.setOutputEnabled(id, -1, false); });
    row("setOutputEnabled behind the last", [](Engine &e, auto &id) { e.setOutputEnabled(id, 1, false); });
    row("unknown id", [=](Engine &e, auto &) {
        e.removePipeline(other);
        e.renamePipeline(other, u"b"_s);
        e.configureSource(other, {{u"uri"_s, u"u"_s}});
        e.configureEncoder(other, {{u"bitrate"_s, 1}});
        e.addRtmpOutput(other, u"u"_s);
        e.addSrtOutput(other, u"u"_s, 1, u"p"_s);
        e.addSrtOutputFull(other, u"u"_s, 1, u"p"_s, u"s"_s, 1, 1);
        e.addSrtlaOutput(other, u"h"_s, 1);
        e.clearOutputs(other);
        e.removeOutput(other, 0);
        e.setOutputEnabled(other, 0, true);
    });
    row("views, advice and log", [](Engine &e, auto &id) {
        e.outputsView(id);
        e.previewCommand(id);
        e.encoderAdvice(1920, 1080, 30);
        e.ndiSources();
        e.decklinkDevices();
        e.audioBridgeStatus();
        e.clearLog();
    });
}

void tst_EngineStoreSaves::doesNotSave()
{
    QFETCH(Saving, operation);

    Saved saved;
    operation(saved.bench.engine(), saved.id);
    QVERIFY(saved.bench.isEmpty());
}

void tst_EngineStoreSaves::doesNotSaveAtTheEnd()
{
    Saved saved;
    saved.bench->startPipeline(saved.id);
    QVERIFY(waitUntil([&] { return saved.bench->anyPipelineTransmitting(); }));
    saved.bench.end();
    QVERIFY(saved.bench.isEmpty());
}

void tst_EngineStoreSaves::showsNoSecret()
{
    StoreBench bench;
    Engine &engine = bench.start();
    const QString id = engine.addPipeline(u"a"_s);
    const QList<std::function<void()>> steps{
        [&] { engine.addRtmpOutput(id, u"rtmp://h/live/"_s + streamKey); },
        [&] { engine.addSrtOutput(id, u"srt://h:1"_s, 120, passphrase); },
        [&] { engine.addSrtOutputFull(id, u"srt://h:2"_s, 120, passphrase, streamId, 25, -1); },
        [&] { engine.addSrtlaOutput(id, receiver, 5000); },
        [&] {
            engine.configureSource(id, {{u"kind"_s, u"file"_s}, {u"uri"_s, u"a.mp4"_s}});
        },
        [&] {
            engine.configureEncoder(id, {{u"bitrate"_s, 1000}});
        },
        [&] { engine.setOutputEnabled(id, 0, false); },
        [&] { engine.setOutputEnabled(id, 0, true); },
        [&] { engine.startPipeline(id); },
        [&] { engine.stopAll(); },
        [&] { engine.renamePipeline(id, u"b"_s); },
        [&] { engine.addPipeline(u"c"_s); },
        [&] { engine.removeOutput(id, 0); },
        [&] { engine.clearOutputs(id); },
        [&] { engine.removePipeline(id); },
    };
    // Parts of the secrets too: the format's escapes break up a secret that has other than plain characters.
    const QByteArrayList secrets{"chave-9f31c0",   "9f31c0",         "frase-secreta-77",
                                 "secreta",        "r=canal-oculto", "canal-oculto",
                                 "bonding.oculto", "rtmp://",        "srt://"};
    for (qsizetype step = 0; step < steps.size(); ++step) {
        steps.at(step)();
        const QByteArray bytes = bench.contents();
        QVERIFY(bytes.contains("pipelines/size="));
        for (const QByteArray &secret : secrets)
            QVERIFY2(!bytes.contains(secret),
                     qPrintable(u"step %1: "_s.arg(step) + QString::fromUtf8(bytes)));
    }
    bench.end();
    for (const QByteArray &secret : secrets)
        QVERIFY(!bench.contents().contains(secret));
}

CORVANE_TEST(tst_EngineStoreSaves, QCoreApplication)
#include "tst_EngineStoreSaves.moc"
