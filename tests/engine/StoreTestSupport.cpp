#include "tests/engine/StoreTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <algorithm>

namespace corvane::test {

using namespace Qt::StringLiterals;

StoreBench::StoreBench()
    : m_file(QSettings().fileName())
{
    m_path.addFakeFfmpeg("libx264\n");
}

Engine &StoreBench::start()
{
    end();
    m_engine = std::make_unique<Engine>();
    return *m_engine;
}

QList<PipelineConfig> StoreBench::configs() const
{
    QList<PipelineConfig> all;
    for (qsizetype row = 0; row < m_engine->pipelines().size(); ++row)
        all << pipeline(row)->config();
    return all;
}

Pipeline *StoreBench::pipeline(qsizetype row) const
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // A replacement is a younger child than its neighbours, so that rows are found by id; equal ids stand in
    // the order of their creation.
    const QStringList ids = column(u"id"_s);
    qsizetype before = ids.first(row).count(ids.at(row));
    const QList<Pipeline *> all = m_engine->findChildren<Pipeline *>();
    for (Pipeline *candidate : all) {
        if (candidate->config().id == ids.at(row) && before-- == 0)
            return candidate;
    }
    qFatal("no object behind row %d", int(row));
}

QStringList StoreBench::column(const QString &key) const
{
    QStringList values;
    const QVariantList rows = m_engine->pipelines();
    for (const QVariant &row : rows)
        values << row.toMap().value(key).toString();
    return values;
}

QStringList StoreBench::logLines() const
{
    QStringList lines = m_engine->log().split(u'\n', Qt::SkipEmptyParts);
    for (QString &line : lines)
        line = line.sliced(9);
    lines.removeOne(u"métricas Prometheus em http://127.0.0.1:9105/metrics"_s);
    return lines;
}

bool StoreBench::isEmpty() const
{
    return QSettings().allKeys().isEmpty() && bytes().isEmpty();
}

void StoreBench::forget() const
{
    QSettings settings;
    settings.clear();
    settings.sync();
}

void StoreBench::put(const QVariantMap &values) const
{
    QSettings settings;
    settings.beginGroup(u"pipelines"_s);
    for (auto entry = values.begin(); entry != values.end(); ++entry)
        settings.setValue(entry.key(), entry.value());
    settings.endGroup();
    settings.sync();
}

QString StoreBench::value(const QString &key) const
{
    const QVariant value = QSettings().value("pipelines/"_L1 + key);
    return value.isValid() ? value.toString() : QString();
}

QByteArray StoreBench::contents() const
{
    QByteArray all = bytes();
    const QSettings settings;
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys)
        all += key.toUtf8() + '=' + settings.value(key).toString().toUtf8() + '\n';
    return all;
}

bool StoreBench::fileExists() const
{
    return QFileInfo::exists(m_file);
}

QByteArray StoreBench::bytes() const
{
    QFile file(m_file);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void StoreBench::write(const QByteArray &bytes) const
{
    QDir().mkpath(QFileInfo(m_file).path());
    QFile file(m_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("%s can't be written", qPrintable(m_file));
}

QByteArray StoreBench::stored(const QByteArray &key) const
{
    const QByteArrayList lines = bytes().split('\n');
    const QByteArray start = key + '=';
    const auto found = std::find_if(lines.begin(), lines.end(),
                                    [&](const QByteArray &line) { return line.startsWith(start); });
    return found == lines.end() ? QByteArray() : found->sliced(start.size());
}

} // namespace corvane::test
