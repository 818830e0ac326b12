#pragma once

#include <QString>

namespace corvane::test {

/// A file system of its own in memory, mounted at a directory for its lifetime where the system lets a test
/// do so.
class SmallDisk
{
public:
    SmallDisk(const QString &directory, int kibibytes);
    ~SmallDisk();

    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    [[nodiscard]] bool isMounted() const { return m_mounted; }

    /// Takes every byte that is left, with a file "filling".
    [[nodiscard]] bool fill() const;

    [[nodiscard]] bool makeReadOnly() const;

private:
    QString m_directory;
    bool m_mounted;
};

} // namespace corvane::test
