#include "pipeline/SrtTransmit.h"
#include "pipeline/SrtlaLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// One of the two wrappers, with a child that takes `steps`, and all of its signals.
class Wrapper
{
public:
    Wrapper(const QString &tool, const QString &steps)
    {
        OutputConfig output;
        output.localPort = 8900;
        if (tool == "srt-live-transmit"_L1) {
            output.kind = OutputKind::Srt;
            output.url = "fake:"_L1 + steps;
            m_commandLine = "srt-live-transmit udp://:8900 fake:"_L1 + steps + "?latency=120&mode=caller"_L1;
            adopt(std::make_unique<SrtTransmit>(output));
        } else {
            output.kind = OutputKind::Srtla;
            output.receiverHost = "fake:"_L1 + steps;
            m_commandLine = "srtla_send 8901 fake:"_L1 + steps + " 5000"_L1;
            adopt(std::make_unique<SrtlaLauncher>(output));
        }
    }

    void start() { m_start(); }
    void stop() { m_stop(); }
    void destroy() { m_object.reset(); }

    /// The child's process, dead or alive; null where there is none.
    [[nodiscard]] QProcess *process() const { return m_object->findChild<QProcess *>(); }
    [[nodiscard]] const QStringList &lines() const { return m_lines; }
    [[nodiscard]] QString commandLine() const { return m_commandLine; } ///< logged by a start

private:
    template <class T>
    void adopt(std::unique_ptr<T> object)
    {
        QObject::connect(object.get(), &T::logLine, object.get(),
                         [this](const QString &line) { m_lines << line; });
        m_start = [wrapper = object.get()] { wrapper->start(); };
        m_stop = [wrapper = object.get()] { wrapper->stop(); };
        m_object = std::move(object);
    }

    QStringList m_lines;
    QString m_commandLine;
    std::function<void()> m_start;
    std::function<void()> m_stop;
    std::unique_ptr<QObject> m_object;
};

qint64 pidIn(const QString &line)
{
    return line.section(u' ', -1).toLongLong();
}

} // namespace

/// Common behaviour of the wrappers of the two transport tools, tested on each.
class tst_TransportChild : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void missingTool_data();
    void missingTool();
    void toolThatTurnsUpLater_data() { tools(); }
    void toolThatTurnsUpLater();
    void toolThatGoesAway_data();
    void toolThatGoesAway();
    void ending_data();
    void ending();
    void unstartableTool_data() { tools(); }
    void unstartableTool();
    void output_data();
    void output();
    void secondStart_data() { tools(); }
    void secondStart();
    void deadChildBlocksAStart_data() { tools(); }
    void deadChildBlocksAStart();
    void stopIsRepeatable_data() { tools(); }
    void stopIsRepeatable();
    void badExitOnStop_data();
    void badExitOnStop();
    void stubbornChild_data() { tools(); }
    void stubbornChild();
    void childWithoutAWindow_data();
    void childWithoutAWindow();
    void destructorEndsTheChild_data() { tools(); }
    void destructorEndsTheChild();

private:
    static void tools();
    [[nodiscard]] QString addTool(const QString &tool) { return m_tools->addCopy(tool, fakeTransport()); }
    [[nodiscard]] QString pidsStep() const { return "append="_L1 + stepText(m_pids.toUtf8()); }

    std::unique_ptr<ToolPath> m_tools;
    QString m_pids;
};

void tst_TransportChild::tools()
{
    QTest::addColumn<QString>("tool");

    QTest::newRow("bridge") << u"srt-live-transmit"_s;
    QTest::newRow("launcher") << u"srtla_send"_s;
}

void tst_TransportChild::init()
{
    m_tools = std::make_unique<ToolPath>();
    m_pids = m_tools->filePath(u"pids"_s);
}

void tst_TransportChild::cleanup()
{
    m_tools.reset();
}

void tst_TransportChild::missingTool_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("line");

    QTest::newRow("bridge")
        << u"srt-live-transmit"_s
        << u"srt-live-transmit não encontrado — SRT indisponível (brew install srt). RTMP continua funcionando."_s;
    QTest::newRow("launcher")
        << u"srtla_send"_s
        << u"srtla_send não encontrado — agregação de banda indisponível (ver third_party/README.md). Use saída SRT nativa como fallback."_s;
}

void tst_TransportChild::missingTool()
{
    QFETCH(const QString, tool);
    QFETCH(const QString, line);
    Wrapper wrapper(tool, u"pause=0"_s);

    wrapper.start();
    QCOMPARE(wrapper.lines(), QStringList{line});
    wrapper.start(); // nothing is kept of the first attempt
    QCOMPARE(wrapper.lines(), QStringList({line, line}));
    wrapper.stop();
    QCOMPARE(wrapper.lines(), QStringList({line, line}));
}

void tst_TransportChild::toolThatTurnsUpLater()
{
    QFETCH(const QString, tool);
    Wrapper wrapper(tool, pidsStep());
    QVERIFY(!addTool(tool).isEmpty());

    wrapper.start();

    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()});
    QCOMPARE(wrapper.process()->program(), tool); // the place where it was found just now isn't kept
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));
}

void tst_TransportChild::toolThatGoesAway_data()
{
    missingTool_data();
}

void tst_TransportChild::toolThatGoesAway()
{
    QFETCH(const QString, tool);
    QFETCH(const QString, line);
    const QString path = addTool(tool);
    Wrapper wrapper(tool, pidsStep());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));

    QVERIFY(QFile::rename(path, path + ".gone"_L1)); // Windows keeps the file of a program that runs
    wrapper.start();                                 // the search comes before the check for a running child

    QCOMPARE(wrapper.lines(), QStringList({wrapper.commandLine(), line}));
    QVERIFY(processExists(pidIn(fileLines(m_pids).constFirst())));
}

void tst_TransportChild::ending_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QStringList>("lines");

    const QString crashCode = QString::number(crashedExitCode());
    QTest::newRow("bridge, exit code 1") << u"srt-live-transmit"_s << u"exit=1"_s
                                         << QStringList{u"MORREU (code=1, erro) — SRT interrompido"_s};
    QTest::newRow("bridge, exit code 255") << u"srt-live-transmit"_s << u"exit=255"_s
                                           << QStringList{u"MORREU (code=255, erro) — SRT interrompido"_s};
    QTest::newRow("bridge, crash") << u"srt-live-transmit"_s << u"crash"_s
                                   << QStringList{
                                          u"errorOccurred=1"_s,
                                          u"MORREU (code=%1, crash) — SRT interrompido"_s.arg(crashCode)};
    QTest::newRow("launcher, exit code 1")
        << u"srtla_send"_s << u"exit=1"_s << QStringList{u"MORREU (code=1) — bonding interrompido"_s};
    QTest::newRow("launcher, exit code 255")
        << u"srtla_send"_s << u"exit=255"_s << QStringList{u"MORREU (code=255) — bonding interrompido"_s};
    QTest::newRow("launcher, crash") << u"srtla_send"_s << u"crash"_s
                                     << QStringList{
                                            u"errorOccurred=1"_s,
                                            u"MORREU (code=%1) — bonding interrompido"_s.arg(crashCode)};
    QTest::newRow("bridge, last words")
        << u"srt-live-transmit"_s << u"stderr=port%20taken,exit=2"_s
        << QStringList{u"port taken"_s, u"MORREU (code=2, erro) — SRT interrompido"_s};
    QTest::newRow("launcher, last words")
        << u"srtla_send"_s << u"stdout=no%20links,exit=2"_s
        << QStringList{u"no links"_s, u"MORREU (code=2) — bonding interrompido"_s};
}

void tst_TransportChild::ending()
{
    QFETCH(const QString, tool);
    QFETCH(const QString, steps);
    QFETCH(const QStringList, lines);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, steps);

    wrapper.start();
    QVERIFY(waitUntil([&] { return wrapper.lines().constLast().startsWith("MORREU"_L1); }));

    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()} + lines);
}

void tst_TransportChild::unstartableTool()
{
    QFETCH(const QString, tool);
    QVERIFY(!m_tools->addUnstartable(tool).isEmpty());
    Wrapper wrapper(tool, u"pause=0"_s);

    wrapper.start();
    QVERIFY(waitUntil([&] { return wrapper.lines().size() == 2; }));
    wrapper.stop();

    QCOMPARE(wrapper.lines(), QStringList({wrapper.commandLine(), u"errorOccurred=0"_s}));
}

void tst_TransportChild::output_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QByteArray>("channel");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("line");

    struct Case
    {
        const char *name;
        QByteArray bytes;
        QString line;
    };
    const Case cases[] = {
        {"one line", "connected\n", u"connected"_s},
        {"line feeds inside stay", "  one\n\n two \r\nthree \n", u"one\n\n two \r\nthree"_s},
        {"no line feed at all", "half a line", u"half a line"_s},
        {"blanks are an empty line", " \t\n  \n", u""_s},
        {"accents", "conexão — ok\n", u"conexão — ok"_s},
        {"bytes that are no text",
         "a\xff\xfe"
         "b\n",
         u"a��b"_s},
        {"a percent sign and a number", "%1 of %2\n", u"%1 of %2"_s},
    };
    for (const QString &tool : {u"srt-live-transmit"_s, u"srtla_send"_s}) {
        for (const char *channel : {"stderr", "stdout"}) {
            for (const Case &one : cases)
                QTest::addRow("%s, %s, %s", qPrintable(tool), channel, one.name)
                    << tool << QByteArray(channel) << one.bytes << one.line;
        }
    }
}

void tst_TransportChild::output()
{
    QFETCH(const QString, tool);
    QFETCH(const QByteArray, channel);
    QFETCH(const QByteArray, bytes);
    QFETCH(const QString, line);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, QString::fromLatin1(channel) + u'=' + stepText(bytes));

    wrapper.start();
    QVERIFY(waitUntil([&] { return wrapper.lines().size() == 2; }));
    wrapper.stop();

    QCOMPARE(wrapper.lines(), QStringList({wrapper.commandLine(), line}));
}

void tst_TransportChild::secondStart()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, pidsStep());

    wrapper.start();
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));
    wrapper.start();
    wrapper.stop();

    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()});
    QCOMPARE(fileLines(m_pids).size(), 1);
}

void tst_TransportChild::deadChildBlocksAStart()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, pidsStep() + ",exit=3"_L1);
    const auto deaths = [&] { return wrapper.lines().filter(u"MORREU"_s).size(); };
    wrapper.start();
    QVERIFY(waitUntil([&] { return deaths() == 1; }));

    const QStringList before = wrapper.lines();
    wrapper.start();
    QCOMPARE(wrapper.lines(), before);
    QCOMPARE(fileLines(m_pids).size(), 1);

    wrapper.stop(); // reports nothing more of the dead one, and makes way
    QCOMPARE(wrapper.lines(), before);
    wrapper.start();
    QVERIFY(waitUntil([&] { return deaths() == 2; }));
    QCOMPARE(fileLines(m_pids).size(), 2);
}

void tst_TransportChild::stopIsRepeatable()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, pidsStep());

    wrapper.stop();
    QCOMPARE(wrapper.lines(), QStringList());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));
    wrapper.stop();
    QVERIFY(!processExists(pidIn(fileLines(m_pids).constFirst())));
    QVERIFY(waitUntil([&] { return !wrapper.process(); })); // not only when the wrapper goes
    wrapper.stop();
    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()});
}

void tst_TransportChild::badExitOnStop_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("line");

    QTest::newRow("bridge") << u"srt-live-transmit"_s << u"MORREU (code=7, erro) — SRT interrompido"_s;
    QTest::newRow("launcher") << u"srtla_send"_s << u"MORREU (code=7) — bonding interrompido"_s;
}

void tst_TransportChild::badExitOnStop()
{
    QFETCH(const QString, tool);
    QFETCH(const QString, line);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, "term-code=7,"_L1 + pidsStep());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));

    wrapper.stop();

    QCOMPARE(wrapper.lines(), QStringList({wrapper.commandLine(), line}));
}

void tst_TransportChild::stubbornChild()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, "ignore-term,"_L1 + pidsStep());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));
    const qint64 pid = pidIn(fileLines(m_pids).constFirst());

    QTest::failOnWarning(QRegularExpression(u"Destroyed while process"_s));
    QElapsedTimer timer;
    timer.start();
    wrapper.stop();

    QCOMPARE_GE(timer.elapsed(), 2000);
    QCOMPARE_LT(timer.elapsed(), 4000);
    QVERIFY(waitUntil([&] { return !processExists(pid); }));
}

void tst_TransportChild::childWithoutAWindow_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("killed");

    QTest::newRow("bridge") << u"srt-live-transmit"_s << u"MORREU (code=62097, crash) — SRT interrompido"_s;
    QTest::newRow("launcher") << u"srtla_send"_s << u"MORREU (code=62097) — bonding interrompido"_s;
}

/// The real tools have no window: on Windows nobody can ask them to leave, so each costs the whole patience.
void tst_TransportChild::childWithoutAWindow()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, "no-window,"_L1 + pidsStep());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));
    const qint64 pid = pidIn(fileLines(m_pids).constFirst());

    QElapsedTimer timer;
    timer.start();
    wrapper.stop();

#ifdef Q_OS_WIN
    QFETCH(const QString, killed);
    QCOMPARE_GE(timer.elapsed(), 2000);
    QVERIFY(waitUntil([&] { return wrapper.lines().constLast() == killed; }));
#else
    QCOMPARE_LT(timer.elapsed(), 2000);
    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()});
#endif
    QVERIFY(waitUntil([&] { return !processExists(pid); }));
}

void tst_TransportChild::destructorEndsTheChild()
{
    QFETCH(const QString, tool);
    QVERIFY(!addTool(tool).isEmpty());
    Wrapper wrapper(tool, pidsStep());
    wrapper.start();
    QVERIFY(waitUntil([&] { return fileLines(m_pids).size() == 1; }));

    wrapper.destroy();

    QVERIFY(!processExists(pidIn(fileLines(m_pids).constFirst())));
    QCOMPARE(wrapper.lines(), QStringList{wrapper.commandLine()});
}

CORVANE_TEST(tst_TransportChild, QCoreApplication)
#include "tst_TransportChild.moc"
