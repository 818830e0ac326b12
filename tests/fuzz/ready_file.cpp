#include "tests/fuzz/Fuzz.h"
#include "update/UpdateFiles.h"

#include <QDir>
#include <QFileInfo>

using namespace corvane;

// The file by which the program tells the guardian of a package, and the package's name.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray text = fuzz::bytes(data, size);
    if (const auto ready = parseReadyUpdate(text)) {
        fuzz::expect(!ready->package.isEmpty() && !ready->version.isEmpty() && !ready->install_dir.isEmpty(),
                     "all three are there");
        const auto again = parseReadyUpdate(readyUpdateText(*ready));
        fuzz::expect(again && again->package == ready->package && again->version == ready->version &&
                         again->install_dir == ready->install_dir,
                     "what was read can be written and read again");
    }
    const QString name = packageFileName(QString::fromUtf8(text));
    if (isPlainFileName(name)) {
        const QString folder = QStringLiteral("/run/update");
        fuzz::expect(QFileInfo(QDir::cleanPath(folder + u'/' + name)).path() == folder,
                     "a plain name stays in its folder");
    }
    return 0;
}
