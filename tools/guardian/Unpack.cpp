#include "tools/guardian/Unpack.h"

#include "tools/guardian/DiskSync.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <zip.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qsizetype pieceSize = 1 << 18;

struct Discard
{
    void operator()(zip_t *archive) const { zip_discard(archive); }
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};
using Archive = std::unique_ptr<zip_t, Discard>;
using Content = std::unique_ptr<zip_file_t, Discard>;

Archive openArchive(const QString &path, QString &error)
{
    int code = 0;
    // Consistency: the table of contents and the heads of the entries have to say the same.
    Archive archive(zip_open(path.toUtf8().constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
    if (!archive) {
        zip_error_t text;
        zip_error_init_with_code(&text, code);
        error = u"it isn't a zip file that is right in itself: %1"_s.arg(
            QString::fromUtf8(zip_error_strerror(&text)));
        zip_error_fini(&text);
    }
    return archive;
}

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

/// One file's content, which has to be as long as was announced.
QString writeContent(zip_t *archive, zip_uint64_t index, const PackageEntry &entry, const QString &path)
{
    const Content content(zip_fopen_index(archive, index, 0));
    if (!content)
        return u"can't be read: %1"_s.arg(QString::fromUtf8(zip_strerror(archive)));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return u"can't be written: %1"_s.arg(file.errorString());

    QByteArray piece(pieceSize, Qt::Uninitialized);
    quint64 written = 0;
    for (;;) {
        const zip_int64_t count =
            zip_fread(content.get(), piece.data(), static_cast<zip_uint64_t>(pieceSize));
        if (count < 0)
            return u"is damaged: %1"_s.arg(QString::fromUtf8(zip_file_strerror(content.get())));
        if (count == 0)
            break;
        written += static_cast<quint64>(count);
        if (written > entry.size)
            return u"is longer than was announced"_s;
        if (file.write(piece.constData(), count) != count)
            return u"can't be written: %1"_s.arg(file.errorString());
    }
    if (written != entry.size)
        return u"is shorter than was announced"_s;
    return file.flush() && syncFile(file) ? QString() : u"can't be written: %1"_s.arg(file.errorString());
}

/// Nobody but the installation's owner writes to it; what else a packer has set (set-user-id, sticky) is
/// left.
bool setPermissions(const QString &path, bool executable)
{
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser |
                                     QFile::WriteUser | QFile::ReadGroup | QFile::ReadOther;
    if (executable)
        permissions |= QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;
    return QFile::setPermissions(path, permissions);
}

QString unpackEntries(zip_t *archive, const QList<PackageEntry> &entries, const QDir &target,
                      const QByteArray &program)
{
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const PackageEntry &entry = entries[i];
        const QString path = target.filePath(QString::fromUtf8(entry.name));
        QString problem;
        if (!QDir().mkpath(entry.isFolder() ? path : QFileInfo(path).path()))
            problem = u"has a folder that can't be made"_s;
        else if (!entry.isFolder())
            problem = writeContent(archive, static_cast<zip_uint64_t>(i), entry, path);
        if (problem.isEmpty() && !entry.isFolder() &&
            !setPermissions(path, entry.isExecutable() || entry.name == program)) {
            problem = u"can't be given its permissions"_s;
        }
        if (!problem.isEmpty())
            return u"its entry “%1” %2"_s.arg(QString::fromUtf8(entry.name), problem);
    }
    return {};
}

} // namespace

QString unpack(const QString &package, const QString &target, const QString &program,
               const PackageLimits &limits)
{
    QString error;
    const Archive archive = openArchive(package, error);
    if (!archive)
        return error;

    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count > limits.entries)
        return u"it has more than %1 entries"_s.arg(limits.entries);
    QList<PackageEntry> entries(count);
    for (zip_int64_t i = 0; i < count; ++i) {
        if (!readEntry(archive.get(), static_cast<zip_uint64_t>(i), entries[i]))
            return u"its table of contents can't be read"_s;
    }
    const quint64 size = static_cast<quint64>(QFileInfo(package).size());
    error = entriesProblem(entries, size, program.toUtf8(), limits);
    if (!error.isEmpty())
        return error;

    if (QFileInfo::exists(target) || !QDir().mkpath(target))
        return u"the folder %1 can't be made anew"_s.arg(target);
    error = unpackEntries(archive.get(), entries, QDir(target), program.toUtf8());
    if (error.isEmpty() && !syncFolders(target))
        error = u"the folder %1 can't be brought to the disk"_s.arg(target);
    if (!error.isEmpty())
        QDir(target).removeRecursively();
    return error;
}

} // namespace corvane::guardian
