#include "update/Sha256.h"

#include <QCryptographicHash>
#include <QIODevice>

namespace corvane {

std::optional<QByteArray> sha256Of(QIODevice &device)
{
    // Not by addData(&device), which takes a device that fails for one that has ended.
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray piece(0x20000, Qt::Uninitialized);
    qint64 size = 0;
    while ((size = device.read(piece.data(), piece.size())) > 0)
        hash.addData(QByteArrayView(piece).first(size));
    if (size < 0)
        return {};
    return hash.result();
}

} // namespace corvane
