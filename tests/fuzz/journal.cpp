#include "tests/fuzz/Fuzz.h"
#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/UpdateRecord.h"

#include <QDir>
#include <QFile>

using namespace corvane;
using namespace corvane::guardian;

namespace {

const QByteArray program("#!/bin/sh\n");

void makeInstallation(const QString &folder, const QByteArray &stamp)
{
    QDir().mkpath(folder);
    fuzz::write(folder + QStringLiteral("/corvane"), program);
    fuzz::write(folder + QStringLiteral("/.corvane-installation"), stamp);
}

bool isWhole(const QString &folder)
{
    QFile file(folder + QStringLiteral("/corvane"));
    return file.open(QIODevice::ReadOnly) && file.readAll() == program;
}

} // namespace

// The guardian's own files after a crash, a full disk or an edit by hand. The first byte says which folders
// there are; the rest, up to a line "--", is the journal, and what follows the stamp of each.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    static const QString root = fuzz::scratch();
    const Installation at{.directory = root + QStringLiteral("/program"),
                          .program = QStringLiteral("corvane"),
                          .ownFolder = root + QStringLiteral("/own")};
    const QByteArray text = fuzz::bytes(data + 1, size - 1);
    const qsizetype end = text.indexOf("\n--\n");
    const QByteArray stamp = end < 0 ? QByteArray() : text.sliced(end + 4);

    QDir().mkpath(at.own());
    const QStringList folders{at.directory, at.previous(), at.next(), at.failed()};
    for (int i = 0; i < folders.size(); ++i) {
        if ((data[0] >> i) & 1)
            makeInstallation(folders.at(i), stamp);
    }
    fuzz::write(at.journal(), text.first(end < 0 ? text.size() : end));
    fuzz::write(at.record(), text.first(end < 0 ? text.size() : end));

    const bool wasWhole = isWhole(at.directory);
    DirectorySwap swap(at);
    const DirectorySwap::Found found = swap.recover();
    fuzz::expect(!wasWhole || isWhole(at.directory), "a whole installation stays one");
    fuzz::expect(found == DirectorySwap::Found::Broken || isWhole(at.directory),
                 "what isn't broken can be started");
    fuzz::expect(DirectorySwap(at).recover() == found || found == DirectorySwap::Found::RolledBack,
                 "looked at again, it is what it was");
    (void)readRecord(at.record());
    (void)readStamp(at.directory);

    for (const QString &folder : folders + QStringList{at.own()})
        QDir(folder).removeRecursively();
    return 0;
}
