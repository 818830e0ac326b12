#include "tests/e2e/OnAir.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Recording.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <algorithm>
#include <array>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QString companion()
{
    return QCoreApplication::applicationDirPath() + "/ffmpeg"_L1;
}

const SrtListener::Demands demandsOfSrt{u"the-right-passphrase"_s, {}};

/// A line to an RTMP server that keeps what the encoder sends.
class Line : public QTcpServer
{
public:
    explicit Line(quint16 server)
        : m_server(server)
    {
        connect(this, &QTcpServer::newConnection, this, &Line::accept);
        listen(QHostAddress::LocalHost);
    }

    [[nodiscard]] const QByteArray &sent() const { return m_sent; }

private:
    void accept()
    {
        QTcpSocket *const near = nextPendingConnection();
        auto *const far = new QTcpSocket(near);
        far->connectToHost(QHostAddress::LocalHost, m_server);
        connect(near, &QTcpSocket::readyRead, far, [this, near, far] {
            const QByteArray bytes = near->readAll();
            m_sent += bytes;
            far->write(bytes);
        });
        connect(far, &QTcpSocket::readyRead, near, [near, far] { near->write(far->readAll()); });
        connect(near, &QTcpSocket::disconnected, near, &QObject::deleteLater);
    }

    quint16 m_server;
    QByteArray m_sent;
};

} // namespace

/// A stream of the program with the companion beside it, and what happens to its line.
class tst_LineThatComesBack : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void serverGoneAndBack();
    void listenersAndTheirFaults();
    void refusedAtTheStart();
    void hungEncoder();
    void goodbyeOfTheOperator();
    void sourceThatEnds();
    void recordingWithoutAHole();
    void recordingLostAlone();
};

void tst_LineThatComesBack::initTestCase()
{
    if (!OnAir::toolsInstalled())
        QSKIP("ffmpeg, ffprobe or srt-live-transmit isn't installed");
    if (const QString missing = RtmpServer::missing(); !missing.isEmpty())
        QSKIP(qPrintable(missing));
    QFile::remove(companion()); // of a run that was ended halfway
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_AIR), companion()));
}

void tst_LineThatComesBack::cleanupTestCase()
{
    QFile::remove(companion());
}

void tst_LineThatComesBack::serverGoneAndBack()
{
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    OnAir air(SrtPath::Direct);
    QCOMPARE(air.engine().ffmpegPath(), companion());
    air.engine().addRtmpOutput(air.id(), server.url(u"secret"_s));
    const QString hostAndPort = server.url({}).section(u'/', 2, 2);
    air.start();
    QVERIFY(air.transmitFor(5));

    server.stop();
    const QString lost =
        u"[air] destino %1 perdido — a codificação continua, reconectando a cada segundo"_s.arg(hostAndPort);
    QVERIFY2(waitUntil([&] { return air.hasLine(lost); }), qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(3)); // it goes on encoding
    QVERIFY2(server.startAgain(), qPrintable(server.error()));
    QVERIFY2(waitUntil([&] {
                 return !air.linesWith(u"[air] destino %1 de volta após "_s.arg(hostAndPort)).isEmpty();
             }),
             qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(4));
    air.stop();
    server.stop();

    QCOMPARE(air.state(), u"stopped"_s);
    QCOMPARE(air.linesWith(u"ffmpeg rodando"_s).size(), 1);
    QCOMPARE(air.linesWith(u"ERRO: "_s), QStringList());
    QCOMPARE(air.linesWith(u"[air] "_s).size(), 2);
    QCOMPARE(air.linesWith(u"[air] "_s).filter(u"secret"_s), QStringList());
    QVERIFY(!air.linesWith(u"kbits/s"_s).isEmpty());
    const Recording received = inspectRecording(server.recording(u"secret"_s));
    QCOMPARE(received.videoCodec, u"h264"_s);
    QCOMPARE(received.audioCodec, u"aac"_s);
    QCOMPARE_GE(received.seconds, 2.0);
    QCOMPARE_LE(received.largestGap, 1.0);
}

void tst_LineThatComesBack::listenersAndTheirFaults()
{
    // Side by side, each with its fault: the listener killed and back, silent for a while, the encoder
    // killed, hung, and a passphrase that the listener doesn't take.
    std::array<SrtListener, 5> listeners;
    for (SrtListener &listener : listeners)
        QVERIFY2(listener.start(&listener == &listeners.back() ? demandsOfSrt : SrtListener::Demands()),
                 qPrintable(listener.error()));
    OnAir air(SrtPath::Direct);
    std::array<QString, 5> ids{air.id()};
    for (std::size_t at = 1; at < ids.size(); ++at)
        ids.at(at) = air.addStream();
    for (std::size_t at = 0; at < ids.size(); ++at) {
        air.engine().addSrtOutput(ids.at(at), listeners.at(at).url(), 120,
                                  at == 4 ? u"wrong-passphrase"_s : QString());
        air.engine().startPipeline(ids.at(at));
    }
    const auto all = [&](auto test) {
        return std::all_of(listeners.begin(), std::prev(listeners.end()), test);
    };
    QVERIFY(waitUntil(
        [&] { return all([](const SrtListener &each) { return each.bytesRecorded() > 300000; }); }, 40000));
    QVERIFY(waitUntil([&] { return air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s); }));
    air.engine().stopPipeline(ids[4]);
    const auto hostAndPort = [&](std::size_t at) { return u"127.0.0.1:%1"_s.arg(listeners.at(at).port()); };
    const auto encoder = [&](std::size_t at) {
        return childProcesses(OnAir::childWith(listeners.at(at).url() + u'?')).value(0);
    };
    const qint64 silent = OnAir::childWith(u":%1?mode=listener"_s.arg(listeners[1].port()));
    QVERIFY(silent > 0 && encoder(2) > 0 && encoder(3) > 0);
    const std::array before{listeners[2].bytesRecorded(), listeners[3].bytesRecorded()};

    listeners[0].kill();
    suspendProcess(silent);
    killProcess(encoder(2));
    suspendProcess(encoder(3));

    for (const std::size_t at : {0U, 1U})
        QVERIFY2(waitUntil([&] {
                     return air.hasLine(u"[air] destino "_s + hostAndPort(at) +
                                        u" perdido — a codificação continua, reconectando a cada segundo"_s);
                 }),
                 qPrintable(air.engine().log()));
    QVERIFY2(listeners[0].startAgain(), qPrintable(listeners[0].error()));
    sendSignal(silent, SIGCONT);
    for (const std::size_t at : {0U, 1U})
        QVERIFY2(
            waitUntil([&] {
                return !air.linesWith(u"[air] destino "_s + hostAndPort(at) + u" de volta após "_s).isEmpty();
            }),
            qPrintable(air.engine().log()));
    for (const std::size_t at : {2U, 3U})
        QVERIFY2(
            waitUntil([&] { return listeners.at(at).bytesRecorded() > before.at(at - 2) + 200000; }, 40000),
            qPrintable(air.engine().log()));
    QVERIFY(waitUntil([&] { return listeners[0].bytesRecorded() > 200000; }));
    for (const QString &id : ids)
        air.engine().stopPipeline(id);

    QVERIFY(air.hasLine(u"[air] ffmpeg sem progresso há 4 s — encerrando com code=1"_s));
    QCOMPARE(air.linesWith(u"circuit breaker"_s), QStringList());
    QCOMPARE(air.linesWith(u"[air] "_s).filter(u"passphrase"_s), QStringList());
    for (SrtListener &listener : listeners)
        listener.stop();
    QCOMPARE(inspectRecording(listeners[0].recording()).videoCodec, u"h264"_s);
}

void tst_LineThatComesBack::refusedAtTheStart()
{
    OnAir air(SrtPath::Direct);
    air.engine().addRtmpOutput(air.id(), u"rtmp://127.0.0.1:1/live/key"_s);

    air.start();

    QVERIFY2(waitUntil([&] { return air.state() == "failed"_L1; }), qPrintable(air.engine().log()));
    QVERIFY(!air.linesWith(u"Connection refused"_s).isEmpty());
    QVERIFY(air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s));
    QCOMPARE(air.linesWith(u"[stats] "_s), QStringList());
}

void tst_LineThatComesBack::hungEncoder()
{
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    OnAir air(SrtPath::Direct);
    air.engine().addRtmpOutput(air.id(), server.url(u"key"_s));
    air.start();
    QVERIFY(air.transmitFor(3));
    const qint64 between = OnAir::childWith(u"-f flv rtmp:"_s);
    QVERIFY(between > 0);
    const QList<qint64> encoders = childProcesses(between);
    QCOMPARE(encoders.size(), 1);

    suspendProcess(encoders.constFirst());

    QVERIFY2(waitUntil([&] { return air.linesWith(u"ffmpeg rodando"_s).size() == 2; }),
             qPrintable(air.engine().log()));
    QVERIFY(air.hasLine(u"[air] ffmpeg sem progresso há 4 s — encerrando com code=1"_s));
    QVERIFY(air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s));
    QCOMPARE(air.linesWith(u"HANG"_s), QStringList());
    air.stop();
}

void tst_LineThatComesBack::goodbyeOfTheOperator()
{
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    Line line(static_cast<quint16>(server.url({}).section(u':', 2).section(u'/', 0, 0).toUInt()));
    OnAir air(SrtPath::Direct);
    air.engine().addRtmpOutput(air.id(), u"rtmp://127.0.0.1:%1/live/key"_s.arg(line.serverPort()));
    air.start();
    QVERIFY(air.transmitFor(3));
    const QList<qint64> encoders = childProcesses(OnAir::childWith(u"-f flv rtmp:"_s));
    QCOMPARE(encoders.size(), 1);
    sendSignal(encoders.constFirst(), SIGTERM); // by it ffmpeg itself would take leave
    QVERIFY2(waitUntil([&] { return air.state() == "stopped"_L1; }), qPrintable(air.engine().log()));
    air.start();
    QVERIFY(air.transmitFor(3));
    QVERIFY(line.sent().contains("FCPublish"));
    QVERIFY(!line.sent().contains("deleteStream"));

    air.stop();

    QVERIFY(waitUntil([&] { return line.sent().contains("deleteStream"); }));
    QCOMPARE(air.state(), u"stopped"_s);
}

void tst_LineThatComesBack::sourceThatEnds()
{
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    const quint16 port = freeUdpPort();
    OnAir air(SrtPath::Direct);
    air.engine().configureSource(
        air.id(), {{u"kind"_s, u"srt"_s}, {u"uri"_s, u"srt://127.0.0.1:%1?mode=listener"_s.arg(port)}});
    air.engine().addRtmpOutput(air.id(), server.url(u"key"_s));
    air.start();
    QVERIFY(waitUntil([&] { return udpPortTaken(port); }));
    QProcess camera;
    camera.start(machineTool(u"ffmpeg"_s),
                 {u"-re"_s, u"-f"_s, u"lavfi"_s, u"-i"_s, u"testsrc=size=320x180:rate=30"_s, u"-c:v"_s,
                  u"libx264"_s, u"-preset"_s, u"ultrafast"_s, u"-g"_s, u"30"_s, u"-pix_fmt"_s, u"yuv420p"_s,
                  u"-f"_s, u"mpegts"_s, u"srt://127.0.0.1:%1?mode=caller"_s.arg(port)});
    QVERIFY2(air.transmitFor(3), qPrintable(air.engine().log()));

    camera.kill();
    camera.waitForFinished();

    QVERIFY2(waitUntil([&] { return air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s); }),
             qPrintable(air.engine().log()));
    QVERIFY(air.hasLine(u"[air] a fonte terminou sem pedido de parada — saindo com code=1"_s));
    QVERIFY(air.hasLine(u"auto-restart em 1000ms (tentativa 1 na janela)"_s));
    air.stop();
}

void tst_LineThatComesBack::recordingWithoutAHole()
{
    const QTemporaryDir films;
    const QString setting = QCoreApplication::applicationDirPath() + "/recordings"_L1;
    writeFile(setting, films.path().toUtf8() + '\n');
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    OnAir air(SrtPath::Direct);
    air.engine().addRtmpOutput(air.id(), server.url(u"key"_s));
    air.start();
    QVERIFY(air.transmitFor(5));
    server.stop();
    QVERIFY(air.transmitFor(3));
    QVERIFY2(server.startAgain(), qPrintable(server.error()));
    QVERIFY(air.transmitFor(3));
    air.stop();
    QFile::remove(setting);

    const Recording film = inspectRecording(films.filePath(u"corvane-0001.mkv"_s));
    QCOMPARE(film.videoCodec, u"h264"_s);
    QCOMPARE(film.audioCodec, u"aac"_s);
    QCOMPARE_GE(film.seconds, 10.0);
    QCOMPARE_LE(film.largestGap, 0.5);
}

void tst_LineThatComesBack::recordingLostAlone()
{
    // Side by side: a disk that is removed, one that blocks, one that fills up.
    const QStringList faults{u"gone"_s, u"blocked"_s, u"full"_s};
    const QTemporaryDir disks;
    const auto disk = [&](qsizetype at) { return disks.filePath(faults[at]); };
    for (qsizetype at = 0; at < faults.size(); ++at)
        QVERIFY(QDir().mkpath(disk(at)));
    const SmallDisk smallDisk(disk(2), 128);
    const bool fillsUp = smallDisk.isMounted();
    const QString setting = QCoreApplication::applicationDirPath() + "/recordings"_L1;
    const auto switchOff = qScopeGuard([&] { QFile::remove(setting); });
    RtmpServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    OnAir air(SrtPath::Direct);
    const QStringList ids{air.id(), air.addStream(), air.addStream()};
    for (qsizetype at = 0; at < (fillsUp ? 3 : 2); ++at) {
        writeFile(setting, disk(at).toUtf8() + '\n');
        if (at == 1) {
            qputenv("LD_PRELOAD", CORVANE_BLOCKING_DISK);
            qputenv("ASAN_OPTIONS", "verify_asan_link_order=0");
        }
        air.engine().addRtmpOutput(ids[at], server.url(u"secret-"_s + faults[at]));
        air.engine().startPipeline(ids.at(at));
        QVERIFY2(
            waitUntil([&] { return air.hasLine(u"[air] gravando em %1/corvane-0001.mkv"_s.arg(disk(at))); }),
            qPrintable(air.engine().log()));
        qunsetenv("LD_PRELOAD");
        qunsetenv("ASAN_OPTIONS");
    }
    const auto lost = [&](qsizetype at) {
        return air.linesWith(u"gravação interrompida (%1"_s.arg(disk(at)));
    };
    QVERIFY(air.transmitFor(3));

    QVERIFY(QDir(disk(0)).removeRecursively());

    QVERIFY2(waitUntil([&] { return !lost(0).isEmpty() && (!fillsUp || !lost(2).isEmpty()); }),
             qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(3));
    for (const QString &id : std::as_const(ids))
        air.engine().stopPipeline(id);
    server.stop();
    QCOMPARE(lost(0).size(), 1);
    QVERIFY2(lost(0).constFirst().endsWith(u": No such file or directory — a transmissão continua"_s),
             qPrintable(lost(0).constFirst()));
    QCOMPARE(lost(1),
             QStringList{u"[air] gravação interrompida (%1/corvane-0001.mkv): o disco não acompanha — "
                         "a transmissão continua"_s.arg(disk(1))});
    QCOMPARE(air.linesWith(u"ERRO: "_s), QStringList());
    QCOMPARE(air.linesWith(u"[air] "_s).filter(u"secret"_s), QStringList());
    QVERIFY(!contentsOf(disk(1) + "/corvane-0001.mkv"_L1).isEmpty());
    QVERIFY(!contentsOf(disk(1) + "/corvane-0001.mkv"_L1).contains("secret"));
    for (qsizetype at = 0; at < (fillsUp ? 3 : 2); ++at) {
        const Recording received = inspectRecording(server.recording(u"secret-"_s + faults[at]));
        QCOMPARE_GE(received.seconds, 4.0);
        QCOMPARE_LE(received.largestGap, 0.5);
    }
    if (!fillsUp)
        QSKIP("this system lets the test mount no file system of its own: no full disk was tried");
    QCOMPARE(lost(2),
             QStringList{u"[air] gravação interrompida (%1/corvane-0001.mkv): No space left on device — "
                         "a transmissão continua"_s.arg(disk(2))});
}

CORVANE_TEST(tst_LineThatComesBack, QCoreApplication)
#include "tst_LineThatComesBack.moc"
