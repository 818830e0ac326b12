#include "engine/PipelineStore.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QVariant>

namespace corvane::PipelineStore {

using namespace Qt::StringLiterals;

namespace {

constexpr auto arrayName = "pipelines"_L1;

/// One key of a row, in the order of writing.
struct Field
{
    QLatin1StringView key;
    QVariant (*get)(const PipelineConfig &config);
    void (*set)(PipelineConfig &config, const QVariant &value); ///< null: written and never read
};

constexpr Field fields[] = {
    {"id"_L1, [](const PipelineConfig &c) { return QVariant(c.id); },
     [](PipelineConfig &c, const QVariant &v) { c.id = v.toString(); }},
    {"name"_L1, [](const PipelineConfig &c) { return QVariant(c.name); },
     [](PipelineConfig &c, const QVariant &v) { c.name = v.toString(); }},
    {"sourceKind"_L1, [](const PipelineConfig &c) { return QVariant(c.source.kind); },
     [](PipelineConfig &c, const QVariant &v) { c.source.kind = v.toInt(); }},
    {"sourceUri"_L1, [](const PipelineConfig &c) { return QVariant(c.source.uri); },
     [](PipelineConfig &c, const QVariant &v) { c.source.uri = v.toString(); }},
    {"bitrate"_L1, [](const PipelineConfig &c) { return QVariant(c.encoder.bitrate); },
     [](PipelineConfig &c, const QVariant &v) { c.encoder.bitrate = v.toInt(); }},
    {"hw"_L1, [](const PipelineConfig &c) { return QVariant(c.encoder.hw); },
     [](PipelineConfig &c, const QVariant &v) { c.encoder.hw = v.toInt(); }},
    // A count alone, on purpose: outputs hold secrets.
    {"outputs"_L1, [](const PipelineConfig &c) { return QVariant(qint64(c.outputs.size())); }, nullptr},
};

/// Takes the file's rights from everybody but its owner: a source's address may hold a passphrase. QSettings
/// creates files for everybody to read and keeps the rights of those that exist. A registry has no file.
void keepPrivate(const QString &fileName)
{
    constexpr QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    const QFileInfo file(fileName);
    if (file.isFile() && (file.permissions() & others))
        QFile::setPermissions(fileName, file.permissions() & ~others);
}

} // namespace

QList<PipelineConfig> load()
{
    QSettings settings;
    // The stored size is believed on purpose, however large: a row without any key is a pipeline too.
    const int size = settings.beginReadArray(arrayName);
    QList<PipelineConfig> configs;
    for (int row = 0; row < size; ++row) {
        settings.setArrayIndex(row);
        PipelineConfig config;
        for (const Field &field : fields) {
            if (field.set)
                field.set(config, settings.value(field.key, field.get(config)));
        }
        configs.append(config);
    }
    settings.endArray();
    return configs;
}

void save(const QList<PipelineConfig> &configs)
{
    QSettings settings;
    keepPrivate(settings.fileName()); // of an earlier version, before more is written
    // No size is given: it follows from the highest index written.
    settings.beginWriteArray(arrayName);
    for (int row = 0; row < configs.size(); ++row) {
        settings.setArrayIndex(row);
        for (const Field &field : fields)
            settings.setValue(field.key, field.get(configs.at(row)));
    }
    settings.endArray();
    settings.sync();
    keepPrivate(settings.fileName());
}

} // namespace corvane::PipelineStore
