#include "tests/e2e/OnAir.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <windows.h>

#include <tlhelp32.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QString companion()
{
    return QCoreApplication::applicationDirPath() + "/ffmpeg"_L1;
}

quint16 freeTcpPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

/// A line to an RTMP server, which is another ffmpeg.exe that takes one stream.
class Line
{
public:
    Line()
    {
        QObject::connect(&m_listener, &QTcpServer::newConnection, &m_listener, [this] { accept(); });
        m_listener.listen(QHostAddress::LocalHost);
    }

    ~Line() { cut(); }
    Q_DISABLE_COPY_MOVE(Line)

    [[nodiscard]] QString hostAndPort() const { return u"127.0.0.1:%1"_s.arg(m_listener.serverPort()); }
    [[nodiscard]] QString url() const { return u"rtmp://%1/live/secret"_s.arg(hostAndPort()); }
    [[nodiscard]] const QByteArray &sent() const { return m_sent; }

    /// A new server, which writes what it takes to `file`.
    bool open(const QString &file)
    {
        const quint16 port = freeTcpPort();
        m_server = std::make_unique<QProcess>();
        m_server->start(machineTool(u"ffmpeg"_s),
                        {u"-loglevel"_s, u"error"_s, u"-listen"_s, u"1"_s, u"-f"_s, u"flv"_s, u"-i"_s,
                         u"rtmp://127.0.0.1:%1/live/secret"_s.arg(port), u"-c"_s, u"copy"_s, u"-f"_s,
                         u"flv"_s, u"-flush_packets"_s, u"1"_s, u"-y"_s, file});
        return waitUntil([&] {
            m_next = std::make_unique<QTcpSocket>();
            m_next->connectToHost(QHostAddress::LocalHost, port);
            return m_next->waitForConnected(500);
        });
    }

    /// Line and server are gone.
    void cut()
    {
        if (m_connection)
            m_connection->abort();
        m_next.reset();
        if (m_server) {
            m_server->kill();
            m_server->waitForFinished();
        }
        m_server.reset();
    }

private:
    void accept()
    {
        QTcpSocket *const ours = m_listener.nextPendingConnection();
        if (!m_next) {
            ours->abort();
            ours->deleteLater();
            return;
        }
        QTcpSocket *const theirs = m_next.release();
        theirs->setParent(ours);
        m_connection = ours;
        QObject::connect(ours, &QTcpSocket::readyRead, theirs, [this, ours, theirs] {
            const QByteArray bytes = ours->readAll();
            m_sent += bytes;
            theirs->write(bytes);
        });
        QObject::connect(theirs, &QTcpSocket::readyRead, ours,
                         [ours, theirs] { ours->write(theirs->readAll()); });
        QObject::connect(ours, &QTcpSocket::disconnected, ours, &QObject::deleteLater);
    }

    QTcpServer m_listener;
    std::unique_ptr<QProcess> m_server;
    std::unique_ptr<QTcpSocket> m_next; ///< to a server that waits for its stream
    QPointer<QTcpSocket> m_connection;
    QByteArray m_sent;
};

/// A stream to a line.
struct Broadcast
{
    QTemporaryDir films; ///< what the servers take
    Line line;
    OnAir air{SrtPath::Direct};

    /// Until it has been on air for three seconds.
    bool begin()
    {
        air.engine().addRtmpOutput(air.id(), line.url());
        if (!line.open(films.filePath(u"first.flv"_s)))
            return false;
        air.start();
        return air.transmitFor(3);
    }
};

/// The child of `parent` whose program has this file name; 0 if there is none.
qint64 childOf(qint64 parent, const QString &file)
{
    const HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    qint64 found = 0;
    for (BOOL more = Process32FirstW(processes, &entry); more && found == 0;
         more = Process32NextW(processes, &entry)) {
        if (entry.th32ParentProcessID == parent && QString::fromWCharArray(entry.szExeFile) == file)
            found = entry.th32ProcessID;
    }
    CloseHandle(processes);
    return found;
}

/// The companion of a stream on air, and the encoder behind it; 0 if there is none.
qint64 companionProcess()
{
    return childOf(GetCurrentProcessId(), u"ffmpeg"_s);
}

qint64 encoderProcess()
{
    return childOf(companionProcess(), u"ffmpeg.exe"_s);
}

} // namespace

/// A stream of the program with the companion beside it and a real ffmpeg.exe, and what happens to its line.
class tst_LineThatComesBack_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cutAndBack();
    void refusedAtTheStart();
    void hungEncoder();
    void goodbyeOfTheOperator();
    void killedEncoder();
    void killedCompanion();
};

void tst_LineThatComesBack_win::initTestCase()
{
    if (machineTool(u"ffmpeg"_s).isEmpty())
        QSKIP("there is no ffmpeg.exe: neither on PATH nor in the folder that CORVANE_TEST_TOOLS names");
    QFile::remove(companion()); // of a run that was ended halfway
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_AIR), companion()));
}

void tst_LineThatComesBack_win::cleanupTestCase()
{
    QFile::remove(companion());
}

void tst_LineThatComesBack_win::cutAndBack()
{
    const QTemporaryDir films;
    const QString setting = QCoreApplication::applicationDirPath() + "/recordings"_L1;
    writeFile(setting, QDir::toNativeSeparators(films.path()).toUtf8() + "\r\n");
    Line line;
    QVERIFY(line.open(films.filePath(u"first.flv"_s)));
    OnAir air(SrtPath::Direct);
    QCOMPARE(air.engine().ffmpegPath(), companion());
    air.engine().addRtmpOutput(air.id(), line.url());
    air.start();
    QVERIFY2(air.transmitFor(5), qPrintable(air.engine().log()));

    line.cut();
    const QString lost =
        u"[air] destino %1 perdido — a codificação continua, reconectando a cada segundo"_s.arg(
            line.hostAndPort());
    QVERIFY2(waitUntil([&] { return air.hasLine(lost); }), qPrintable(air.engine().log()));
    QVERIFY(air.transmitFor(3)); // it goes on encoding
    const QString second = films.filePath(u"second.flv"_s);
    QVERIFY(line.open(second));
    QVERIFY2(
        waitUntil([&] {
            return !air.linesWith(u"[air] destino %1 de volta após "_s.arg(line.hostAndPort())).isEmpty();
        }),
        qPrintable(air.engine().log()));
    QVERIFY(waitUntil([&] { return QFileInfo(second).size() > 10000; }));
    QVERIFY(air.transmitFor(2));
    air.stop();
    QFile::remove(setting);

    QCOMPARE(air.state(), u"stopped"_s);
    QCOMPARE(air.linesWith(u"ffmpeg rodando"_s).size(), 1);
    QCOMPARE(air.linesWith(u"ERRO: "_s), QStringList());
    QCOMPARE(air.linesWith(u"secret"_s).filter(u"[air]"_s), QStringList());
    QVERIFY(!air.linesWith(u"kbits/s"_s).isEmpty());
    // A recording of the first stream and the second: longer than what the line took of either.
    const QString film = films.filePath(u"corvane-0001.mkv"_s);
    QVERIFY(air.hasLine("[air] gravando em "_L1 + QDir::toNativeSeparators(film)));
    QCOMPARE_GT(QFileInfo(film).size(), QFileInfo(second).size());
}

void tst_LineThatComesBack_win::refusedAtTheStart()
{
    OnAir air(SrtPath::Direct);
    air.engine().addRtmpOutput(air.id(), u"rtmp://127.0.0.1:1/live/key"_s);

    air.start();

    QVERIFY2(waitUntil([&] { return air.state() == "failed"_L1; }), qPrintable(air.engine().log()));
    QVERIFY2(!air.linesWith(u"Connection to tcp://127.0.0.1:1 failed"_s).isEmpty(),
             qPrintable(air.engine().log()));
    QVERIFY(air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s));
    QCOMPARE(air.linesWith(u"[stats] "_s), QStringList());
}

void tst_LineThatComesBack_win::hungEncoder()
{
    Broadcast here;
    QVERIFY2(here.begin(), qPrintable(here.air.engine().log()));
    const qint64 hung = encoderProcess();
    QVERIFY(hung > 0);

    suspendProcess(hung);

    QVERIFY2(waitUntil([&] { return here.air.hasLine(u"ERRO: ffmpeg saiu (code=1, erro)"_s); }),
             qPrintable(here.air.engine().log()));
    QVERIFY(here.air.hasLine(u"[air] ffmpeg sem progresso há 4 s — encerrando com code=1"_s));
    QCOMPARE(here.air.linesWith(u"HANG"_s), QStringList());
    QVERIFY(!processExists(hung));
    QVERIFY(!here.line.sent().contains("deleteStream"));
    here.air.stop();
}

void tst_LineThatComesBack_win::goodbyeOfTheOperator()
{
    Broadcast here;
    QVERIFY2(here.begin(), qPrintable(here.air.engine().log()));
    QVERIFY(here.line.sent().contains("FCPublish"));
    QVERIFY(!here.line.sent().contains("deleteStream"));

    here.air.stop();

    QVERIFY(waitUntil([&] { return here.line.sent().contains("deleteStream"); }));
    QVERIFY(waitUntil([&] { return here.air.state() == "stopped"_L1; }));
}

void tst_LineThatComesBack_win::killedEncoder()
{
    Broadcast here;
    QVERIFY2(here.begin(), qPrintable(here.air.engine().log()));
    QVERIFY(encoderProcess() > 0);

    killProcess(encoderProcess());
    here.line.cut();
    QVERIFY(here.line.open(here.films.filePath(u"second.flv"_s)));

    QVERIFY2(waitUntil([&] { return here.air.linesWith(u"ffmpeg rodando"_s).size() == 2; }),
             qPrintable(here.air.engine().log()));
    QVERIFY(!here.line.sent().contains("deleteStream"));
    QVERIFY2(here.air.transmitFor(2), qPrintable(here.air.engine().log()));
    here.air.stop();
}

void tst_LineThatComesBack_win::killedCompanion()
{
    Broadcast here;
    QVERIFY2(here.begin(), qPrintable(here.air.engine().log()));
    const qint64 real = encoderProcess();
    QVERIFY(real > 0);

    killProcess(companionProcess());

    QVERIFY(waitUntil([&] { return !processExists(real); }));
    QVERIFY(!here.line.sent().contains("deleteStream"));
    here.air.stop();
}

CORVANE_TEST(tst_LineThatComesBack_win, QCoreApplication)
#include "tst_LineThatComesBack_win.moc"
