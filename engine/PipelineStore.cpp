#include "engine/PipelineStore.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>

namespace corvane::PipelineStore {

using namespace Qt::StringLiterals;

namespace {

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
    const int size = settings.beginReadArray(u"pipelines"_s);
    QList<PipelineConfig> configs;
    for (int row = 0; row < size; ++row) {
        settings.setArrayIndex(row);
        PipelineConfig config;
        config.id = settings.value(u"id"_s).toString();
        config.name = settings.value(u"name"_s).toString();
        config.source.kind = settings.value(u"sourceKind"_s, config.source.kind).toInt();
        config.source.uri = settings.value(u"sourceUri"_s).toString();
        config.encoder.bitrate = settings.value(u"bitrate"_s, config.encoder.bitrate).toInt();
        config.encoder.hw = settings.value(u"hw"_s, config.encoder.hw).toInt();
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
    settings.beginWriteArray(u"pipelines"_s);
    for (int row = 0; row < configs.size(); ++row) {
        const PipelineConfig &config = configs.at(row);
        settings.setArrayIndex(row);
        settings.setValue(u"id"_s, config.id);
        settings.setValue(u"name"_s, config.name);
        settings.setValue(u"sourceKind"_s, config.source.kind);
        settings.setValue(u"sourceUri"_s, config.source.uri);
        settings.setValue(u"bitrate"_s, config.encoder.bitrate);
        settings.setValue(u"hw"_s, config.encoder.hw);
        settings.setValue(u"outputs"_s, qint64(config.outputs.size()));
    }
    settings.endArray();
    settings.sync();
    keepPrivate(settings.fileName());
}

} // namespace corvane::PipelineStore
