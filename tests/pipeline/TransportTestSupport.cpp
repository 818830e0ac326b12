#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"

namespace corvane::test {

using namespace Qt::StringLiterals;

OutputConfig srtOutput(int localPort)
{
    OutputConfig output;
    output.kind = OutputKind::Srt;
    output.url = u"srt://127.0.0.1:9000"_s;
    output.localPort = localPort;
    return output;
}

OutputConfig bondedOutput(int localPort, int localPort2)
{
    OutputConfig output;
    output.kind = OutputKind::Srtla;
    output.receiverHost = u"127.0.0.1"_s;
    output.receiverPort = 5000;
    output.localPort = localPort;
    output.localPort2 = localPort2;
    return output;
}

PipelineConfig transportConfig(const QList<OutputConfig> &outputs, const QString &ffmpegSteps)
{
    PipelineConfig config = fakeConfig(ffmpegSteps);
    config.outputs = outputs + config.outputs;
    return config;
}

TransportTools::TransportTools(const QString &steps)
{
    for (const QString &tool : {u"srt-live-transmit"_s, u"srtla_send"_s}) {
        if (m_path.addCopy(tool, fakeTransport()).isEmpty())
            qFatal("%s can't be put on the path", qPrintable(tool));
    }
    const QString notes = u"death=%1,%2,append=%3"_s.arg(stepText(filePath(u"deaths"_s).toUtf8()),
                                                         steps.isEmpty() ? u"pause=0"_s : steps,
                                                         stepText(filePath(u"pids"_s).toUtf8()));
    qputenv("FAKE_TRANSPORT", notes.toUtf8());
}

TransportTools::~TransportTools()
{
    qunsetenv("FAKE_TRANSPORT");
}

QStringList TransportTools::started() const
{
    QStringList names;
    for (const QString &line : fileLines(filePath(u"pids"_s)))
        names << line.section(u' ', 0, 0);
    return names;
}

QList<qint64> TransportTools::pids() const
{
    QList<qint64> ids;
    for (const QString &line : fileLines(filePath(u"pids"_s)))
        ids << line.section(u' ', 1).toLongLong();
    return ids;
}

qint64 TransportTools::pidOf(const QString &tool) const
{
    return pids().value(started().indexOf(tool));
}

QStringList TransportTools::deaths() const
{
    return fileLines(filePath(u"deaths"_s));
}

QString TransportTools::deathStep() const
{
    return "death="_L1 + stepText(filePath(u"deaths"_s).toUtf8());
}

bool awaitOnAir(const Recorder &recorder, const TransportTools &tools, qsizetype processes)
{
    return waitUntil([&] { return tools.started().size() == processes && hasProgress(recorder); });
}

QStringList transportCommands(const Recorder &recorder)
{
    QStringList commands;
    for (const QString &line : recorder.logLines()) {
        const QString command = line.section(u' ', 1);
        if (line.startsWith(u'[') &&
            (command.startsWith("srt-live-transmit udp:"_L1) || command.startsWith("srtla_send "_L1)))
            commands << line;
    }
    return commands;
}

QString plainSrtLine()
{
    return u"[srt] srt-live-transmit udp://:8900 srt://127.0.0.1:9000?latency=120&mode=caller"_s;
}

QString launcherLine()
{
    return u"[srtla] srtla_send 8911 127.0.0.1 5000"_s;
}

QString bondedBridgeLine()
{
    return u"[srtla-bridge] srt-live-transmit udp://:8910 srt://127.0.0.1:8911?latency=120&mode=caller"_s;
}

} // namespace corvane::test
