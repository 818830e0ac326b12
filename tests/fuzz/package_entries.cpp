#include "tests/fuzz/Fuzz.h"
#include "tools/guardian/PackageEntries.h"

#include <QDir>
#include <QSet>

#include <fuzzer/FuzzedDataProvider.h>

using namespace corvane;
using namespace corvane::guardian;

// A package's table of contents.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const PackageLimits limits{.packageBytes = 1 << 20, .entries = 50, .unpackedBytes = 1 << 20};
    // A longer package isn't opened.
    const auto packageBytes = input.ConsumeIntegralInRange<quint64>(0, limits.packageBytes);
    QList<PackageEntry> entries;
    while (input.remaining_bytes() > 0) {
        PackageEntry entry;
        entry.size = input.ConsumeIntegral<quint64>();
        entry.packedSize = input.ConsumeIntegral<quint64>();
        entry.method = input.PickValueInArray<quint16>({0, 8, 12});
        entry.encrypted = input.ConsumeIntegralInRange(0, 7) == 7;
        entry.unixMode = input.ConsumeIntegral<quint32>();
        entry.name = QByteArray::fromStdString(input.ConsumeRandomLengthString(300));
        entries.append(entry);
    }
    if (!entriesProblem(entries, packageBytes, "corvane", limits).isEmpty())
        return 0;

    fuzz::expect(entries.size() <= limits.entries, "no more entries than allowed");
    quint64 unpacked = 0;
    QSet<QString> names;
    const QString folder = QStringLiteral("/opt/corvane");
    for (const PackageEntry &entry : qAsConst(entries)) {
        fuzz::expect(entry.size <= limits.unpackedBytes - unpacked, "unpacked size holds");
        unpacked += entry.size;
        const QString name = QString::fromUtf8(entry.name);
        fuzz::expect(QDir::cleanPath(folder + u'/' + name).startsWith(folder + u'/'),
                     "no entry leaves the folder");
        const QString folded = QDir::cleanPath(name).toCaseFolded();
        fuzz::expect(!names.contains(folded), "no entry is there twice, whatever its case");
        names.insert(folded);
        fuzz::expect(!entry.encrypted && entry.method != 12, "each can be read");
    }
    fuzz::expect(names.contains(QStringLiteral("corvane")), "the program is there");
    return 0;
}
