#include "tools/guardian/StagedPackage.h"

#include "update/Sha256.h"

#include <QByteArray>
#include <QFile>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

CopiedPackage copyPackage(const QString &from, const QString &to)
{
    constexpr qint64 pieceSize = 1 << 20;
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly))
        return {{}, u"the package can't be read: %1"_s.arg(source.errorString())};
    QFile::remove(to);
    QFile copy(to);
    if (!copy.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFile::ReadOwner | QFile::WriteOwner))
        return {{}, u"the package can't be copied to %1: %2"_s.arg(to, copy.errorString())};

    Sha256 hash;
    QByteArray piece(pieceSize, Qt::Uninitialized);
    for (;;) {
        const qint64 count = source.read(piece.data(), pieceSize);
        if (count < 0)
            return {{}, u"the package can't be read: %1"_s.arg(source.errorString())};
        if (count == 0)
            break;
        hash.add(QByteArrayView(piece).first(count));
        if (copy.write(piece.constData(), count) != count)
            return {{}, u"the package can't be copied to %1: %2"_s.arg(to, copy.errorString())};
    }
    if (!copy.flush())
        return {{}, u"the package can't be copied to %1: %2"_s.arg(to, copy.errorString())};
    const QByteArray digest = hash.result();
    if (digest.isEmpty())
        return {{}, u"the package can't be hashed"_s};
    return {QString::fromLatin1(digest.toHex()), {}};
}

} // namespace corvane::guardian
