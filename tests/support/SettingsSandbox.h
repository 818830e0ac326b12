#pragma once

#include <QString>

namespace corvane::test {

/// Empty settings of the test's own while the object lives: a default-constructed QSettings reads and writes
/// them and nothing else. They are gone with the object.
class SettingsSandbox
{
public:
    SettingsSandbox();
    ~SettingsSandbox();
    Q_DISABLE_COPY_MOVE(SettingsSandbox)

    /// File that holds them, where the platform keeps settings in files.
    [[nodiscard]] QString filePath() const;

private:
    QString m_formerOrganization;
};

} // namespace corvane::test
