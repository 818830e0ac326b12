#include "tests/fuzz/Fuzz.h"
#include "tools/guardian/Unpack.h"

#include <QDir>
#include <QFileInfo>

using namespace corvane;
using namespace corvane::guardian;

// A package as a feed may send it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString folder = fuzz::scratch();
    static const QString package = folder + QStringLiteral("/package.zip");
    static const QString target = folder + QStringLiteral("/next");
    static const PackageLimits limits{.packageBytes = 1 << 20, .entries = 50, .unpackedBytes = 1 << 20};

    fuzz::write(package, fuzz::bytes(data, size));
    const QString problem = unpack(package, target, QStringLiteral("corvane"), limits);
    fuzz::expect(problem.isEmpty() == QFileInfo::exists(target), "a refused package leaves nothing behind");
    fuzz::expect(!problem.isEmpty() || QFileInfo(target + QStringLiteral("/corvane")).isFile(),
                 "the program is there");
    const QStringList left =
        QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    fuzz::expect(left.size() == (problem.isEmpty() ? 2 : 1), "nothing is written beside the target");
    QDir(target).removeRecursively();
    return 0;
}
