#include "tests/support/SmallDisk.h"

#include <QFile>

#include <string>

#ifdef Q_OS_LINUX
#include <sys/mount.h>
#endif

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

#ifdef Q_OS_LINUX
bool mountAt(const QString &directory, int kibibytes)
{
    return ::mount("tmpfs", QFile::encodeName(directory).constData(), "tmpfs", 0,
                   ("size=" + std::to_string(kibibytes) + 'k').c_str()) == 0;
}

void unmount(const QString &directory)
{
    ::umount2(QFile::encodeName(directory).constData(), MNT_DETACH);
}

bool remountReadOnly(const QString &directory)
{
    return ::mount(nullptr, QFile::encodeName(directory).constData(), nullptr, MS_REMOUNT | MS_RDONLY,
                   nullptr) == 0;
}
#else
bool mountAt(const QString & /*directory*/, int /*kibibytes*/)
{
    return false;
}

void unmount(const QString & /*directory*/) {}

bool remountReadOnly(const QString & /*directory*/)
{
    return false;
}
#endif

} // namespace

SmallDisk::SmallDisk(const QString &directory, int kibibytes)
    : m_directory(directory)
    , m_mounted(mountAt(directory, kibibytes))
{
}

SmallDisk::~SmallDisk()
{
    if (m_mounted)
        unmount(m_directory);
}

bool SmallDisk::fill() const
{
    QFile file(m_directory + "/filling"_L1);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    while (file.write(QByteArray(4096, 'x')) > 0) {
    }
    return file.error() != QFileDevice::NoError;
}

bool SmallDisk::makeReadOnly() const
{
    return remountReadOnly(m_directory);
}

} // namespace corvane::test
