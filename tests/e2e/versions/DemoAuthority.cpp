// Authority of the demonstration's server, for programs of the demonstration's publisher.

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace {

/// Adds the authority whose certificate the environment names to those that the machine trusts.
void trustDemoAuthority()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(qEnvironmentVariable("CORVANE_DEMO_AUTHORITY"));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(trustDemoAuthority)
