// What a publisher's build pins, for the demonstration's publisher, and the authority of its server.

#include "update/PinnedUpdateKey.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace corvane {

// The public key of the first vector in RFC 8032: everybody knows its private half.
const char *pinnedUpdateKey()
{
    return "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";
}

} // namespace corvane

namespace {

/// As if the machine trusted the authority whose certificate the environment names.
void trustDemoAuthority()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(qEnvironmentVariable("CORVANE_DEMO_AUTHORITY"));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(trustDemoAuthority)
