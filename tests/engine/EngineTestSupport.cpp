#include "tests/engine/EngineTestSupport.h"

#include <QRegularExpression>

#include <algorithm>

namespace corvane::test {

using namespace Qt::StringLiterals;

EngineBench::EngineBench(const QByteArray &protocols)
    : m_ffmpeg(m_path.addFakeFfmpeg("libx264\n", protocols))
{
    if (engine.ffmpegPath() != m_ffmpeg)
        qFatal("%s hides the fake ffmpeg of the tests", qPrintable(engine.ffmpegPath()));
}

QString EngineBench::addFake(const QString &name, const QString &steps)
{
    QString id = engine.addPipeline(name);
    engine.addRtmpOutput(id, "fake:"_L1 + steps);
    return id;
}

Pipeline *EngineBench::pipeline(const QString &id) const
{
    const QList<Pipeline *> all = engine.findChildren<Pipeline *>();
    const auto newest =
        std::find_if(all.rbegin(), all.rend(), [&](const Pipeline *p) { return p->config().id == id; });
    return newest == all.rend() ? nullptr : *newest;
}

QStringList EngineBench::column(const QString &key) const
{
    QStringList values;
    const QVariantList rows = engine.pipelines();
    for (const QVariant &row : rows)
        values << row.toMap().value(key).toString();
    return values;
}

QStringList EngineBench::logLines() const
{
    static const QRegularExpression stamp(u"^([01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d "_s);
    QStringList lines = engine.log().split(u'\n');
    lines.removeLast(); // the part after the last line feed
    for (QString &line : lines)
        line = stamp.match(line).hasMatch() ? line.sliced(9) : u"(no stamp) "_s + line;
    return lines;
}

bool EngineBench::logHas(const QString &part) const
{
    const QStringList lines = logLines();
    return std::any_of(lines.begin(), lines.end(), [&](const QString &line) { return line.contains(part); });
}

} // namespace corvane::test
