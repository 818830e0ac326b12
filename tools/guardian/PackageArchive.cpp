#include "tools/guardian/PackageArchive.h"

#include "tools/guardian/PrintableText.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <zip.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qsizetype pieceSize = 1 << 18;

struct CloseContent
{
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};

/// False if the table of contents can't be read.
bool readEntry(zip_t *archive, zip_uint64_t index, PackageEntry &entry)
{
    constexpr zip_uint64_t needed = ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE |
                                    ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
    zip_stat_t status;
    zip_stat_init(&status);
    if (zip_stat_index(archive, index, ZIP_FL_ENC_RAW, &status) != 0 || (status.valid & needed) != needed)
        return false;
    entry.name = QByteArray(status.name);
    entry.size = status.size;
    entry.packedSize = status.comp_size;
    entry.method = status.comp_method;
    entry.encrypted = status.encryption_method != ZIP_EM_NONE;

    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0)
        return false;
    // The upper half is what a Unix packer would put there; another's zeros say nothing.
    entry.unixMode = attributes >> 16U;
    return true;
}

} // namespace

void PackageArchive::Discard::operator()(zip *archive) const
{
    zip_discard(archive);
}

PackageArchive::PackageArchive(const QString &path, const QString &program, const PackageLimits &limits)
{
    const auto size = static_cast<quint64>(QFileInfo(path).size());
    m_error =
        size > limits.packageBytes ? u"it is longer than %1 bytes"_s.arg(limits.packageBytes) : open(path);
    if (m_error.isEmpty())
        m_error = readEntries(limits);
    if (m_error.isEmpty())
        m_error = entriesProblem(m_entries, size, program.toUtf8(), limits);
}

QString PackageArchive::open(const QString &path)
{
    int code = 0;
    // Consistency: the table of contents and the heads of the entries have to say the same.
    m_archive.reset(zip_open(path.toUtf8().constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
    if (m_archive)
        return {};
    zip_error_t text;
    zip_error_init_with_code(&text, code);
    QString error = u"it isn't a zip file that is right in itself: %1"_s.arg(
        QString::fromUtf8(zip_error_strerror(&text)));
    zip_error_fini(&text);
    return error;
}

QString PackageArchive::readEntries(const PackageLimits &limits)
{
    const zip_int64_t count = zip_get_num_entries(m_archive.get(), 0);
    if (count > limits.entries)
        return u"it has more than %1 entries"_s.arg(limits.entries);
    m_entries.resize(count);
    for (zip_int64_t i = 0; i < count; ++i) {
        if (!readEntry(m_archive.get(), static_cast<zip_uint64_t>(i), m_entries[i]))
            return u"its table of contents can't be read"_s;
    }
    return {};
}

QString PackageArchive::read(qsizetype index, const Sink &sink) const
{
    const PackageEntry &entry = m_entries[index];
    const std::unique_ptr<zip_file_t, CloseContent> content(
        zip_fopen_index(m_archive.get(), static_cast<zip_uint64_t>(index), 0));
    if (!content)
        return u"can't be read: %1"_s.arg(QString::fromUtf8(zip_strerror(m_archive.get())));

    QByteArray piece(pieceSize, Qt::Uninitialized);
    quint64 all = 0;
    for (;;) {
        const zip_int64_t count =
            zip_fread(content.get(), piece.data(), static_cast<zip_uint64_t>(pieceSize));
        if (count < 0)
            return u"is damaged: %1"_s.arg(QString::fromUtf8(zip_file_strerror(content.get())));
        if (count == 0)
            break;
        all += static_cast<quint64>(count);
        if (all > entry.size)
            return u"is longer than was announced"_s;
        if (QString error = sink(QByteArrayView(piece).first(count)); !error.isEmpty())
            return error;
    }
    return all == entry.size ? QString() : u"is shorter than was announced"_s;
}

QString packageProblem(const QString &path, const QString &program, const QString &version,
                       const PackageLimits &limits)
{
    const PackageArchive archive(path, program, limits);
    if (!archive.error().isEmpty())
        return archive.error();
    for (qsizetype i = 0; i < archive.entries().size(); ++i) {
        const PackageEntry &entry = archive.entries()[i];
        const bool isStamp = entry.name == stampName;
        QByteArray stamp;
        const QString problem = entry.isFolder() ? QString() : archive.read(i, [&](QByteArrayView piece) {
            if (isStamp)
                stamp.append(piece);
            return QString();
        });
        if (!problem.isEmpty())
            return u"its entry “%1” %2"_s.arg(printable(QString::fromUtf8(entry.name)), problem);
        if (isStamp && !version.isEmpty() && stampedVersion(stamp) != version)
            return u"what is in it calls itself version “%1”"_s.arg(printable(stampedVersion(stamp)));
    }
    return {};
}

QString stampedVersion(const QByteArray &stamp)
{
    return QJsonDocument::fromJson(stamp).object()["version"_L1].toString();
}

} // namespace corvane::guardian
