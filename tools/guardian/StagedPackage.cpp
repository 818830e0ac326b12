#include "tools/guardian/StagedPackage.h"

#include "tools/guardian/RegularFile.h"
#include "tools/guardian/WriteAll.h"
#include "update/Sha256.h"

#include <QByteArray>
#include <QFile>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 pieceSize = 1 << 20;

/// From one file to the other. Answers why not.
QString copyAndHash(QFile &source, QFile &copy, qint64 largest, Sha256 &hash)
{
    QByteArray piece(pieceSize, Qt::Uninitialized);
    for (qint64 all = 0;;) {
        const qint64 count = source.read(piece.data(), pieceSize);
        if (count < 0)
            return u"the package can't be read: %1"_s.arg(source.errorString());
        if (count == 0)
            break;
        all += count;
        if (all > largest)
            return u"the package grows while it is copied"_s;
        const auto bytes = QByteArrayView(piece).first(count);
        hash.add(bytes);
        if (const QString error = writeAll(copy, bytes); !error.isEmpty())
            return u"the package can't be copied to %1: %2"_s.arg(copy.fileName(), error);
    }
    return {};
}

} // namespace

CopiedPackage copyPackage(const QString &from, const QString &to, quint64 largest)
{
    const RegularFile source = openRegularFile(from, static_cast<qint64>(largest));
    if (!source.file)
        return {{}, u"the package can't be read: %1"_s.arg(source.error)};
    QFile::remove(to);
    QFile copy(to);
    // Without a buffer, whose rest would keep remove() from it on a full disk.
    if (!copy.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                   QFile::ReadOwner | QFile::WriteOwner))
        return {{}, u"the package can't be copied to %1: %2"_s.arg(to, copy.errorString())};

    Sha256 hash;
    QString error = copyAndHash(*source.file, copy, static_cast<qint64>(largest), hash);
    const QByteArray digest = hash.result();
    if (error.isEmpty() && digest.isEmpty())
        error = u"the package can't be hashed"_s;
    if (!error.isEmpty()) {
        copy.remove();
        return {{}, error};
    }
    return {QString::fromLatin1(digest.toHex()), {}};
}

} // namespace corvane::guardian
