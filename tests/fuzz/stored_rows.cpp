#include "engine/PipelineStore.h"

#include "tests/fuzz/Fuzz.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

using namespace corvane;

// The settings file as somebody may have edited it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // A name of its own for each, as QSettings keeps what it has read of a file.
    static quint64 count = 0;
    fuzz::application();
    QCoreApplication::setOrganizationName(QStringLiteral("fuzz"));
    QCoreApplication::setApplicationName(QString::number(++count));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, fuzz::scratch());
    const QString path = QSettings().fileName();
    QDir().mkpath(QFileInfo(path).path());
    fuzz::write(path, fuzz::bytes(data, size));

    // A size is believed, however large: such a file only takes its time.
    if (QSettings().value(QStringLiteral("pipelines/size")).toInt() <= 20) {
        const QList<PipelineConfig> rows = PipelineStore::load();
        PipelineStore::save(rows);
        const QList<PipelineConfig> again = PipelineStore::load();
        fuzz::expect(again.size() == rows.size() || rows.isEmpty(), "no row is lost");
        for (qsizetype i = 0; i < rows.size(); ++i) {
            const PipelineConfig &one = rows.at(i);
            const PipelineConfig &other = again.at(i);
            fuzz::expect(one.id == other.id && one.name == other.name &&
                             one.source.kind == other.source.kind && one.source.uri == other.source.uri &&
                             one.encoder.bitrate == other.encoder.bitrate &&
                             one.encoder.hw == other.encoder.hw,
                         "what was read can be written and read again");
        }
    }
    QFile::remove(path);
    return 0;
}
