#include "tests/support/SmallDisk.h"

#include <QFile>

#include <string>

#include <sys/mount.h>

namespace corvane::test {

SmallDisk::SmallDisk(const QString &directory, int kibibytes)
    : m_directory(directory)
    , m_mounted(::mount("tmpfs", QFile::encodeName(directory).constData(), "tmpfs", 0,
                        ("size=" + std::to_string(kibibytes) + 'k').c_str()) == 0)
{
}

SmallDisk::~SmallDisk()
{
    if (m_mounted)
        ::umount(QFile::encodeName(m_directory).constData());
}

} // namespace corvane::test
