// Pins of a publisher's build, for the demonstration's publisher, and the authority of its server.

#include "update/PinnedUpdateKey.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace corvane {

// Public key of the first vector in RFC 8032, whose private half is public too.
const char *pinnedUpdateKey()
{
    return "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";
}

} // namespace corvane

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
