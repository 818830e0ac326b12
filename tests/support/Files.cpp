#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <ctime>

namespace corvane::test {

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

QStringList fileLines(const QString &path)
{
    return QString::fromUtf8(contentsOf(path)).split(u'\n', Qt::SkipEmptyParts);
}

void createFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("no file can be made at %s", qPrintable(path));
}

QStringList entriesOf(const QString &path)
{
    return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

qint64 coarseSeconds()
{
    return static_cast<qint64>(std::time(nullptr));
}

} // namespace corvane::test
