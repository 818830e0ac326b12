#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

#include <cstddef>
#include <cstdint>

/// What the fuzz targets share. Each target is a program with the one function of libFuzzer,
/// `LLVMFuzzerTestOneInput`, which reads its input as the program reads a foreigner's bytes and expects what
/// has to hold whatever they are. A broken expectation, a sanitizer's finding, ten seconds or a gigabyte for
/// one input end the run; libFuzzer keeps the input.
namespace corvane::fuzz {

/// Ends the program with `what` unless `holds`.
void expect(bool holds, const char *what);

/// The application object of the running program, made at the first call.
QCoreApplication &application();

/// Folder of this program, empty at its start and gone at its end, in memory where the system has such a
/// place.
QString scratch();

/// Replaces the file by `content`.
void write(const QString &path, const QByteArray &content);

/// The input as bytes that aren't copied: what reads past them is seen.
inline QByteArray bytes(const std::uint8_t *data, std::size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

} // namespace corvane::fuzz
