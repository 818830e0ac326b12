#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace corvane::test {

/// One entry of a zip file that a test writes byte by byte, so that it may lie.
struct ZipItem
{
    QByteArray name;
    QByteArray content = {};
    quint32 unixMode = 0100644; ///< as a Unix packer gives it; 0: none
    bool deflated = false;      ///< else stored
    int method = -1;            ///< what the file says, -1: the truth
    qint64 announcedSize = -1;  ///< unpacked, as the file says; -1: the truth
    QByteArray localName = {};  ///< name before the content, if not `name`
    quint16 flags = 0;          ///< 1: encrypted
    bool wrongChecksum = false;
};

/// The bytes of a zip file with these entries.
[[nodiscard]] QByteArray zipBytes(const QList<ZipItem> &items);

/// Writes them to `path`; false if that fails.
[[nodiscard]] bool writeZip(const QString &path, const QList<ZipItem> &items);

} // namespace corvane::test
