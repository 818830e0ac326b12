#include "tools/publish/PackageDigest.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>

using namespace Qt::StringLiterals;

namespace corvane {

PackageDigest packageDigest(const QString &path, const std::function<void(qint64, qint64)> &progress)
{
    constexpr qint64 pieceSize = 1 << 20;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {{}, u"can't read %1: %2"_s.arg(path, file.errorString())};

    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray piece(pieceSize, Qt::Uninitialized);
    qint64 done = 0;
    for (;;) {
        const qint64 count = file.read(piece.data(), pieceSize);
        if (count < 0)
            return {{}, u"can't read %1: %2"_s.arg(path, file.errorString())};
        if (count == 0)
            return {QString::fromLatin1(hash.result().toHex()), {}};
        hash.addData(QByteArrayView(piece).first(count));
        done += count;
        if (progress)
            progress(done, file.size());
    }
}

} // namespace corvane
