#pragma once

#include <QString>

namespace corvane::test {

/// A file system of its own in memory, mounted at a directory for its lifetime where the system lets a test
/// do so. Unix only.
class SmallDisk
{
public:
    SmallDisk(const QString &directory, int kibibytes);
    ~SmallDisk();

    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    [[nodiscard]] bool isMounted() const { return m_mounted; }

private:
    QString m_directory;
    bool m_mounted;
};

} // namespace corvane::test
