#include "tests/e2e/OnAir.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Recording.h"
#include "tests/support/RtmpServer.h"
#include "tests/support/Runner.h"
#include "tests/support/SrtListener.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QString companion()
{
    return QCoreApplication::applicationDirPath() + "/ffmpeg"_L1;
}

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
    void listenerGoneAndBack();
    void refusedAtTheStart();
    void hungEncoder();
    void goodbyeOfTheOperator();
    void sourceThatEnds();
    void recordingWithoutAHole();
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

void tst_LineThatComesBack::listenerGoneAndBack()
{
    SrtListener listener;
    QVERIFY2(listener.start(), qPrintable(listener.error()));
    OnAir air(SrtPath::Direct);
    air.engine().addSrtOutput(air.id(), listener.url(), 120, QString());
    air.start();
    QVERIFY(air.transmitFor(5));

    listener.kill();
    QVERIFY2(waitUntil([&] { return !air.linesWith(u" perdido — "_s).isEmpty(); }),
             qPrintable(air.engine().log()));
    QVERIFY2(listener.startAgain(), qPrintable(listener.error()));
    QVERIFY2(waitUntil([&] { return !air.linesWith(u" de volta após "_s).isEmpty(); }),
             qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(3));
    air.stop();
    listener.stop();

    QCOMPARE(air.linesWith(u"ffmpeg rodando"_s).size(), 1);
    QCOMPARE(air.linesWith(u"ERRO: "_s), QStringList());
    QCOMPARE(inspectRecording(listener.recording()).videoCodec, u"h264"_s);
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

CORVANE_TEST(tst_LineThatComesBack, QCoreApplication)
#include "tst_LineThatComesBack.moc"
