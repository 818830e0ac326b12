#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <ctime>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

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

bool giveAway([[maybe_unused]] const QString &path)
{
#ifdef Q_OS_UNIX
    constexpr uid_t nobody = 65534;
    const uid_t other = ::geteuid() == nobody ? nobody - 1 : nobody;
    return ::chown(QFile::encodeName(path).constData(), other, static_cast<gid_t>(-1)) == 0;
#else
    return false;
#endif
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
