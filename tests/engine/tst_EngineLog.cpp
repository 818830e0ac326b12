#include "engine/host/Capabilities.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"

#include <QDateTime>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTime>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The Engine's own output: its log, discovery, the audio bridge, the preview.
class tst_EngineLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stampsWithTheLocalTime();
    void stampsInTheZoneOfTheMachine();
    void clears();
    void isBounded();
    void findsNoNdiSources();
    void findsNoDecklinkDevices();
    void namesDecklinkDevices_data();
    void namesDecklinkDevices();
    void hasNoAudioBridge();
    void previewsADefaultPipeline();
    void previewsWhatCannotBeBuilt();
    void previewsSrtAsIfFfmpegHadNone_data();
    void previewsSrtAsIfFfmpegHadNone();
    void previewsWithoutFfmpeg();
};

void tst_EngineLog::stampsWithTheLocalTime()
{
    EngineBench bench;
    bench->clearLog();
    QSignalSpy logged(&bench.engine, &Engine::logChanged);

    const QTime before = QTime::currentTime();
    bench->appendLog(u"Olá, 100% \"x\""_s);
    const QTime after = QTime::currentTime();

    QCOMPARE(logged.size(), 1);
    QVERIFY(bench->log().endsWith(u" Olá, 100% \"x\"\n"_s));
    QCOMPARE(bench->log().size(), 8 + 15);
    const QTime stamp = QTime::fromString(bench->log().first(8), u"HH:mm:ss"_s);
    QVERIFY2(stamp.isValid(), qPrintable(bench->log()));
    if (before <= after) // not at midnight
        QVERIFY(stamp >= QTime(before.hour(), before.minute(), before.second()) && stamp <= after);
    QCOMPARE(bench.engine.property("log").toString(), bench->log());
}

void tst_EngineLog::stampsInTheZoneOfTheMachine()
{
#ifndef Q_OS_WIN // where the zone is that of the system
    const bool wasSet = qEnvironmentVariableIsSet("TZ");
    const QByteArray former = qgetenv("TZ");
    const auto restore = qScopeGuard([&] { wasSet ? qputenv("TZ", former) : qunsetenv("TZ"); });
    qputenv("TZ", "<+0530>-05:30");
    QCOMPARE(QDateTime::currentDateTime().offsetFromUtc(), (5 * 60 + 30) * 60);
#endif
    EngineBench bench;
    bench->clearLog();
    const auto secondsOfDay = [] {
        const qint64 utc = QDateTime::currentSecsSinceEpoch();
        return (utc + QDateTime::currentDateTime().offsetFromUtc()) % 86400;
    };

    const qint64 before = secondsOfDay();
    bench->appendLog(u"x"_s);
    const qint64 after = secondsOfDay();

    const qint64 stamp = QTime(0, 0).secsTo(QTime::fromString(bench->log().first(8), u"HH:mm:ss"_s));
    if (before <= after) // not at midnight
        QVERIFY2(stamp >= before && stamp <= after, qPrintable(bench->log()));
}

void tst_EngineLog::clears()
{
    EngineBench bench;
    QVERIFY(!bench->log().isEmpty());
    QSignalSpy logged(&bench.engine, &Engine::logChanged);
    QVERIFY(bench.call("clearLog"));
    QCOMPARE(bench->log(), QString());
    QCOMPARE(logged.size(), 1);
    QVERIFY(bench.call("clearLog")); // the signal comes even if there was nothing
    QCOMPARE(logged.size(), 2);
}

void tst_EngineLog::isBounded()
{
    EngineBench bench;
    bench->clearLog();
    bench->appendLog(QString(59990, u'a'));
    QCOMPARE(bench->log().size(), qsizetype(60000));
    bench->appendLog(QString());
    QCOMPARE(bench->log().size(), qsizetype(40000));
    QVERIFY(bench->log().startsWith(u"aaaa"_s)); // the cut fell inside the line
    bench->appendLog(u"b"_s);
    QCOMPARE(bench->log().size(), qsizetype(40011));
}

void tst_EngineLog::findsNoNdiSources()
{
    EngineBench bench;
    bench->clearLog();
    QCOMPARE(bench.ask<QStringList>("ndiSources"), QStringList());
    QCOMPARE(bench.ask<QStringList>("ndiSources", 1500), QStringList());
    QCOMPARE(bench.ask<QStringList>("ndiSources", -1), QStringList());
    QCOMPARE(bench.logLines(), QStringList(3, u"NDI discovery: 0 fonte(s) "_s));
    QVERIFY(!bench->ndiSupported());
    QVERIFY(!bench->ffmpegHasNdi());
}

void tst_EngineLog::findsNoDecklinkDevices()
{
    EngineBench bench;
    bench->clearLog();
    QCOMPARE(bench.ask<QStringList>("decklinkDevices"), QStringList());
    QCOMPARE(bench.logLines(), QStringList{u"DeckLink: 0 dispositivo(s) (driver/placa ausente?)"_s});
    QVERIFY(!bench->decklinkSupported());
}

void tst_EngineLog::namesDecklinkDevices_data()
{
    QTest::addColumn<QStringList>("devices");
    QTest::addColumn<QString>("line");

    QTest::newRow("none") << QStringList() << u"DeckLink: 0 dispositivo(s) (driver/placa ausente?)"_s;
    QTest::newRow("one") << QStringList{u"DeckLink Mini (1)"_s}
                         << u"DeckLink: 1 dispositivo(s) — DeckLink Mini (1)"_s;
    QTest::newRow("several") << QStringList{u"DeckLink Mini (1)"_s, u"%1"_s, u"Câmera"_s}
                             << u"DeckLink: 3 dispositivo(s) — DeckLink Mini (1), %1, Câmera"_s;
}

void tst_EngineLog::namesDecklinkDevices()
{
    QFETCH(QStringList, devices);
    QFETCH(const QString, line);
    const auto without = qScopeGuard([] {
        setDecklinkDeviceScan({});
        setDecklinkRuntimeAvailable(false);
    });
    setDecklinkRuntimeAvailable(true);
    setDecklinkDeviceScan([&] { return devices; });

    EngineBench bench;
    bench->clearLog();
    QVERIFY(bench->decklinkSupported());
    QVERIFY(!bench->ndiSupported());
    QCOMPARE(bench.ask<QStringList>("decklinkDevices"), devices);
    QCOMPARE(bench.logLines(), QStringList{line});

    setDecklinkRuntimeAvailable(false); // asked each time
    QVERIFY(!bench->decklinkSupported());
}

void tst_EngineLog::hasNoAudioBridge()
{
    EngineBench bench;
    bench->clearLog();
    bool available = true;
    QVERIFY(QMetaObject::invokeMethod(&bench.engine, "audioBridgeAvailable", Q_RETURN_ARG(bool, available)));
    QVERIFY(!available);

    const auto status = bench.ask<QVariantMap>("audioBridgeStatus");
    const QVariantMap expected{{u"installed"_s, false},
                               {u"active"_s, false},
                               {u"channels"_s, 0},
                               {u"sampleRate"_s, 0},
                               {u"buffered"_s, 0}};
    QCOMPARE(status.keys(), expected.keys());
    for (auto entry = expected.begin(); entry != expected.end(); ++entry) {
        QCOMPARE(status.value(entry.key()).typeId(), entry.value().typeId());
        QCOMPARE(status.value(entry.key()), entry.value());
    }
    QCOMPARE(bench->log(), QString());
}

void tst_EngineLog::previewsADefaultPipeline()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addRtmpOutput(id, u"rtmp://h/live/minha chave"_s);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    QSignalSpy logged(&bench.engine, &Engine::logChanged);

    // One text, with nothing quoted and nothing hidden.
    QCOMPARE(bench.ask<QString>("previewCommand", id),
             bench->ffmpegPath() +
                 u" -hide_banner -loglevel warning -stats"
                 " -re -f lavfi -i testsrc=size=1920x1080:rate=30"
                 " -f lavfi -i anullsrc=channel_layout=stereo:sample_rate=48000"
                 " -c:v libx264 -b:v 6000k -maxrate 6000k -bufsize 12000k -g 60 -pix_fmt yuv420p -bf 0"
                 " -preset veryfast -tune zerolatency -minrate 6000k"
                 " -c:a aac -b:a 160k -ar 48000 -f flv rtmp://h/live/minha chave"_s);
    QCOMPARE(changed.size() + logged.size(), 0);
}

void tst_EngineLog::previewsWhatCannotBeBuilt()
{
    const QString invalid = u"(inválido: Pipeline sem saídas habilitadas)"_s;
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QCOMPARE(bench.ask<QString>("previewCommand", id), invalid);

    bench->addRtmpOutput(id, u"rtmp://a"_s);
    bench->setOutputEnabled(id, 0, false);
    QCOMPARE(bench.ask<QString>("previewCommand", id), invalid);
    QCOMPARE(bench.ask<QString>("previewCommand", u"deadbeef"_s), QString());
}

void tst_EngineLog::previewsSrtAsIfFfmpegHadNone_data()
{
    QTest::addColumn<QByteArray>("protocols");
    QTest::addColumn<bool>("passphraseInStart");

    QTest::newRow("an ffmpeg that has SRT") << QByteArray("Output:\n  rtmp\n  srt\n") << true;
    QTest::newRow("an ffmpeg that has none") << QByteArray("Output:\n  rtmp\n") << false;
}

void tst_EngineLog::previewsSrtAsIfFfmpegHadNone()
{
    QFETCH(QByteArray, protocols);
    QFETCH(bool, passphraseInStart);

    EngineBench bench(protocols);
    QCOMPARE(bench->srtAvailable(), passphraseInStart);
    const QString id = bench->addPipeline(u"a"_s);
    bench->addSrtOutputFull(id, u"srt://h:1"_s, 300, u"segredo123"_s, u"canal456"_s, 25, -1);

    const auto preview = bench.ask<QString>("previewCommand", id);
    const int port = bench.config(id).outputs.first().localPort;
    QVERIFY(preview.endsWith(u" -f mpegts udp://127.0.0.1:"_s + QString::number(port) + u"?pkt_size=1316"_s));
    QVERIFY(!preview.contains(u"segredo123"_s));
    QVERIFY(!preview.contains(u"canal456"_s));

    // The log shows the command that a start really runs, and it may differ.
    bench->clearLog();
    bench->startPipeline(id);
    QVERIFY(bench.logHas(u"ffmpeg -hide_banner"_s));
    QCOMPARE(bench.logHas(
                 u" -f mpegts srt://h:1?latency=300&passphrase=segredo123&pbkeylen=16&streamid=canal456"_s),
             passphraseInStart);
}

void tst_EngineLog::previewsWithoutFfmpeg()
{
    ToolPath nothing;
    Engine engine;
    if (!engine.ffmpegPath().isEmpty())
        qFatal("%s hides that PATH is empty", qPrintable(engine.ffmpegPath()));
    const QString id = engine.addPipeline(u"a"_s);
    engine.addRtmpOutput(id, u"rtmp://a"_s);
    QVERIFY(engine.previewCommand(id).startsWith(u" -hide_banner -loglevel warning -stats "_s));
    QCOMPARE(engine.log().section(u'\n', 0, 0).sliced(9),
             u"ffmpeg=NÃO ENCONTRADO | NDI=não | SRT(srt-live-transmit)=não | srtla=não | encoders="_s);
}

CORVANE_TEST(tst_EngineLog, QCoreApplication)
#include "tst_EngineLog.moc"
