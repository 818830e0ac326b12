#include "app/ScanOptions.h"

#include "engine/host/Capabilities.h"

#include <QString>
#include <QStringList>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr int scanTimeoutMs = 1500;

QByteArray report(const char *supportedFormat, bool supported, const char *countFormat,
                  const QStringList &names)
{
    QByteArray text = QString::asprintf(supportedFormat, supported ? "sim" : "não").toUtf8();
    text += QString::asprintf(countFormat, static_cast<int>(names.size())).toUtf8();
    for (const QString &name : names)
        text += "  - " + name.toUtf8() + '\n';
    return text;
}

} // namespace

std::optional<QByteArray> scanReport(int argc, const char *const argv[])
{
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLatin1(argv[i]);
        if (argument == "--ndi-scan"_L1) {
            return report("NDI suportado: %s\n", ndiRuntimeAvailable(), "Fontes NDI encontradas: %d\n",
                          ndiSourceScan(scanTimeoutMs));
        }
        if (argument == "--decklink-scan"_L1) {
            return report("DeckLink suportado: %s\n", decklinkRuntimeAvailable(),
                          "Dispositivos DeckLink: %d\n", decklinkDeviceScan());
        }
    }
    return std::nullopt;
}

} // namespace corvane
