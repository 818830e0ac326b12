#include "tests/e2e/OnAir.h"

#include "tests/support/Processes.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype stampLength = 9; // "HH:mm:ss "

/// Script in front of the real ffmpeg that hides its protocol "srt".
QByteArray ffmpegWithoutSrt()
{
    return R"sh(for argument; do
    if [ "$argument" = -protocols ]; then
        printf 'Supported file protocols:\nInput:\n  file\n  udp\nOutput:\n  file\n  rtmp\n  udp\n'
        exit
    fi
done
exec )sh" + machineTool(u"ffmpeg"_s).toUtf8() +
           " \"$@\"\n";
}

} // namespace

bool OnAir::toolsInstalled()
{
    return !machineTool(u"ffmpeg"_s).isEmpty() && !machineTool(u"ffprobe"_s).isEmpty() &&
           !machineTool(u"srt-live-transmit"_s).isEmpty();
}

OnAir::OnAir(SrtPath path)
{
    const QString ffmpeg = path == SrtPath::Bridge ? m_tools.addScript(u"ffmpeg"_s, ffmpegWithoutSrt())
                                                   : m_tools.addMachineTool(u"ffmpeg"_s);
    const QString bridge = m_tools.addMachineTool(u"srt-live-transmit"_s);
    if (ffmpeg.isEmpty() || (path == SrtPath::Bridge && bridge.isEmpty()) ||
        m_tools.addCopy(u"srtla_send"_s, srtlaRelay()).isEmpty())
        qFatal("the tools can't be put on the path");

    m_engine = std::make_unique<Engine>();
    m_id = newPipeline();
}

OnAir::~OnAir()
{
    for (const QString &id : m_further + QStringList{m_id})
        m_engine->removePipeline(id); // nothing of it is kept for the next test
}

QString OnAir::newPipeline()
{
    QString id = m_engine->addPipeline(u"Teste"_s);
    m_engine->configureSource(id, {{u"width"_s, 320}, {u"height"_s, 180}, {u"fps"_s, 30}});
    m_engine->configureEncoder(id, {{u"bitrate"_s, 500}, {u"keyintSec"_s, 1}});
    return id;
}

QString OnAir::addStream()
{
    m_further << newPipeline();
    return m_further.constLast();
}

QString OnAir::state() const
{
    const QVariantList rows = m_engine->pipelines();
    for (const QVariant &row : rows) {
        if (row.toMap().value(u"id"_s) == m_id)
            return row.toMap().value(u"state"_s).toString();
    }
    return {};
}

QStringList OnAir::logLines() const
{
    QStringList lines;
    for (const QString &line : m_engine->log().split(u'\n', Qt::SkipEmptyParts))
        lines << line.sliced(std::min(stampLength, line.size()));
    return lines;
}

QStringList encoderFailures(const QStringList &logLines)
{
    static const QRegularExpression failure(u"^ERRO: ffmpeg saiu \\(code=[1-9][0-9]*, erro\\)$"_s);
    return logLines.filter(failure);
}

bool OnAir::hasLine(const QString &line) const
{
    return logLines().contains(line);
}

QStringList OnAir::linesWith(const QString &part) const
{
    return logLines().filter(part);
}

double OnAir::encodedSeconds() const
{
    static const QRegularExpression time(uR"(time=(\d+):(\d+):([\d.]+))"_s);
    const QStringList progress = linesWith(u"[stats] "_s);
    if (progress.isEmpty())
        return 0;
    const auto match = time.match(progress.constLast());
    return match.captured(1).toInt() * 3600 + match.captured(2).toInt() * 60 + match.captured(3).toDouble();
}

bool OnAir::transmitFor(double seconds)
{
    const double goal = encodedSeconds() + seconds;
    return waitUntil([&] { return encodedSeconds() >= goal; }, 20000 + static_cast<int>(seconds * 2000));
}

qint64 OnAir::childWith(const QString &part)
{
    for (const qint64 pid : childProcesses()) {
        if (processCommand(pid).join(u' ').contains(part))
            return pid;
    }
    return 0;
}

} // namespace corvane::test
