#include "tests/support/SettingsSandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QUuid>

namespace corvane::test {

SettingsSandbox::SettingsSandbox()
    : m_formerOrganization(QCoreApplication::organizationName())
{
    QCoreApplication::setOrganizationName(QLatin1String("corvane-test-") +
                                          QUuid::createUuid().toString(QUuid::WithoutBraces));
}

SettingsSandbox::~SettingsSandbox()
{
    const QString path = filePath();
    {
        QSettings settings;
        settings.clear();
    }
    QFile::remove(path);
    QCoreApplication::setOrganizationName(m_formerOrganization);
}

QString SettingsSandbox::filePath() const
{
    return QSettings().fileName();
}

} // namespace corvane::test
