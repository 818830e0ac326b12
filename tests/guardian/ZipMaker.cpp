#include "tests/guardian/ZipMaker.h"

#include <QFile>

#include <algorithm>
#include <array>

namespace corvane::test {

namespace {

void put16(QByteArray &out, quint32 value)
{
    out.append(static_cast<char>(value & 0xffU)).append(static_cast<char>(value >> 8U & 0xffU));
}

void put32(QByteArray &out, quint32 value)
{
    put16(out, value & 0xffffU);
    put16(out, value >> 16U);
}

/// CRC-32 of ISO 3309, byte by byte: tests make packages of 64 MiB.
quint32 checksum(const QByteArray &bytes)
{
    static const auto table = [] {
        std::array<quint32, 256> remainders{};
        for (quint32 byte = 0; byte < 256; ++byte) {
            quint32 rest = byte;
            for (int bit = 0; bit < 8; ++bit)
                rest = (rest >> 1U) ^ ((rest & 1U) != 0 ? 0xedb88320U : 0U);
            remainders[byte] = rest;
        }
        return remainders;
    }();
    quint32 crc = 0xffffffffU;
    for (const char byte : bytes)
        crc = (crc >> 8U) ^ table[(crc ^ static_cast<quint8>(byte)) & 0xffU];
    return ~crc;
}

/// qCompress gives the same stream with 4 bytes of length and 2 of a heading before it, and 4 bytes after it.
QByteArray deflate(const QByteArray &bytes)
{
    const QByteArray packed = qCompress(bytes, 9);
    return packed.sliced(6).chopped(4);
}

/// What the head before the content and the table of contents have in common.
QByteArray commonFields(const ZipItem &item, const QByteArray &packed, const QByteArray &name)
{
    const int method = item.method >= 0 ? item.method : item.deflated ? 8 : 0;
    const qint64 size = item.announcedSize >= 0 ? item.announcedSize : item.content.size();
    QByteArray fields;
    put16(fields, 20);                  // version needed
    put16(fields, item.flags | 0x800U); // names are UTF-8
    put16(fields, static_cast<quint32>(method));
    put16(fields, 0);      // time
    put16(fields, 0x5821); // date
    put32(fields, checksum(item.content) ^ (item.wrongChecksum ? 1U : 0U));
    put32(fields, static_cast<quint32>(packed.size()));
    put32(fields, static_cast<quint32>(size));
    put16(fields, static_cast<quint32>(name.size()));
    put16(fields, 0); // extra fields
    return fields;
}

} // namespace

QByteArray zipBytes(const QList<ZipItem> &items)
{
    QByteArray file;
    QByteArray table;
    for (const ZipItem &item : items) {
        const QByteArray packed = item.deflated ? deflate(item.content) : item.content;
        const quint32 offset = static_cast<quint32>(file.size());
        const QByteArray localName = item.localName.isEmpty() ? item.name : item.localName;
        file += "PK\x03\x04" + commonFields(item, packed, localName) + localName + packed;

        table += "PK\x01\x02";
        put16(table, 3U << 8U | 20U); // made on Unix
        table += commonFields(item, packed, item.name);
        put16(table, 0); // comment
        put16(table, 0); // disk
        put16(table, 0); // internal attributes
        put32(table, item.unixMode << 16U);
        put32(table, offset);
        table += item.name;
    }
    const quint32 tableOffset = static_cast<quint32>(file.size());
    file += table + "PK\x05\x06";
    put32(file, 0); // disks
    put16(file, static_cast<quint32>(items.size()));
    put16(file, static_cast<quint32>(items.size()));
    put32(file, static_cast<quint32>(table.size()));
    put32(file, tableOffset);
    put16(file, 0); // comment
    return file;
}

bool writeZip(const QString &path, const QList<ZipItem> &items)
{
    const QByteArray bytes = zipBytes(items);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace corvane::test
