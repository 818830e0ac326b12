#include "tools/publish/PackageDigest.h"

#include "update/Sha256.h"

#include <QByteArray>
#include <QFile>

using namespace Qt::StringLiterals;

namespace corvane {

PackageDigest packageDigest(const QString &path, const std::function<void(qint64, qint64)> &progress)
{
    constexpr qint64 pieceSize = 1 << 20;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, u"can't read %1: %2"_s.arg(path, file.errorString())};

    Sha256 hash;
    QByteArray piece(pieceSize, Qt::Uninitialized);
    qint64 done = 0;
    for (;;) {
        const qint64 count = file.read(piece.data(), pieceSize);
        if (count < 0)
            return {{}, u"can't read %1: %2"_s.arg(path, file.errorString())};
        if (count == 0)
            break;
        hash.add(QByteArrayView(piece).first(count));
        done += count;
        if (progress)
            progress(done, file.size());
    }
    const QByteArray digest = hash.result();
    if (digest.isEmpty())
        return {{}, u"can't hash %1"_s.arg(path)};
    return {QString::fromLatin1(digest.toHex()), {}};
}

} // namespace corvane
