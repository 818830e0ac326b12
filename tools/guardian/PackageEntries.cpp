#include "tools/guardian/PackageEntries.h"

#include "tools/guardian/PrintableText.h"

#include <QHash>
#include <QStringDecoder>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr quint32 typeMask = 0170000;
constexpr quint32 regularFile = 0100000;
constexpr quint32 folder = 0040000;

// Names that Windows takes for devices in every folder, with any suffix.
constexpr QLatin1StringView devices[] = {
    "con"_L1,  "prn"_L1,  "aux"_L1,  "nul"_L1,  "com0"_L1, "com1"_L1, "com2"_L1,   "com3"_L1,    "com4"_L1,
    "com5"_L1, "com6"_L1, "com7"_L1, "com8"_L1, "com9"_L1, "lpt0"_L1, "lpt1"_L1,   "lpt2"_L1,    "lpt3"_L1,
    "lpt4"_L1, "lpt5"_L1, "lpt6"_L1, "lpt7"_L1, "lpt8"_L1, "lpt9"_L1, "conin$"_L1, "conout$"_L1, "clock$"_L1,
};

bool isDevice(const QString &component)
{
    // A superscript digit counts as the digit there.
    QString stem = component.section(u'.', 0, 0).trimmed().toLower();
    stem.replace(u'¹', u'1').replace(u'²', u'2').replace(u'³', u'3');
    return std::any_of(std::begin(devices), std::end(devices),
                       [&stem](auto device) { return stem == device; });
}

/// A name for the log: what can't be printed, or is long, is shown so.
QString shown(const QByteArray &name)
{
    constexpr qsizetype longest = 80;
    const QString text = printable(QString::fromUtf8(name.left(longest)));
    return name.size() > longest ? text + u'…' : text;
}

QString componentProblem(const QString &component)
{
    if (component.isEmpty())
        return u"has an empty part, or begins at the root"_s;
    if (component == "."_L1 || component == ".."_L1)
        return u"leads out of its folder"_s;
    if (component.endsWith(u'.') || component.endsWith(u' '))
        return u"has a part that ends in a dot or a space"_s;
    const auto forbidden = [](QChar c) {
        return c < u' ' || c == u'\x7f' || QStringView(u"<>:\"|?*\\").contains(c);
    };
    if (std::any_of(component.cbegin(), component.cend(), forbidden))
        return u"holds a character that no file name may have everywhere"_s;
    if (isDevice(component))
        return u"names a device"_s;
    return {};
}

/// As the least tolerant file system sees it: letter case and composition of accents don't tell names apart.
QString folded(const QString &name)
{
    return name.normalized(QString::NormalizationForm_C)
        .toCaseFolded()
        .normalized(QString::NormalizationForm_C);
}

QString kindProblem(const PackageEntry &entry)
{
    const quint32 type = entry.unixMode & typeMask;
    if (type != 0 && type != (entry.isFolder() ? folder : regularFile))
        return u"is a link or another special file"_s;
    if (entry.encrypted)
        return u"is encrypted"_s;
    if (entry.method != 0 && entry.method != 8)
        return u"is packed by method %1, not stored or deflated"_s.arg(entry.method);
    if (entry.method == 0 && entry.size != entry.packedSize)
        return u"is stored with two sizes"_s;
    if (entry.isFolder() && entry.size != 0)
        return u"is a folder with content"_s;
    return {};
}

/// The stamp is a small file under its very name, and nothing else may be taken for it.
QString stampProblem(const PackageEntry &entry)
{
    if (folded(QString::fromUtf8(entry.name)).section(u'/', 0, 0) !=
        QLatin1StringView(stampName.data(), stampName.size())) {
        return {};
    }
    return entry.name == stampName && entry.size <= largestStamp
               ? QString()
               : u"is a name that the guardian keeps for itself"_s;
}

/// Every path that has been taken, with the folders on the way; a path is a file or a folder, once.
class TakenPaths
{
public:
    QString add(const QString &name)
    {
        const bool isFolder = name.endsWith(u'/');
        const QString path = folded(isFolder ? name.chopped(1) : name);
        for (qsizetype end = path.indexOf(u'/'); end >= 0; end = path.indexOf(u'/', end + 1)) {
            Kind &above = m_paths[path.first(end)];
            if (above == File)
                return u"lies in a file"_s;
            if (above == None)
                above = Implied;
        }
        Kind &own = m_paths[path];
        if (own == File || own == Folder || (own == Implied && !isFolder))
            return u"is there twice, letter case aside"_s;
        own = isFolder ? Folder : File;
        return {};
    }

    [[nodiscard]] qsizetype count() const { return m_paths.size(); }

private:
    enum Kind : quint8 { None, File, Folder, Implied };
    QHash<QString, Kind> m_paths;
};

} // namespace

QString nameProblem(const QByteArray &name)
{
    QStringDecoder decode(QStringDecoder::Utf8);
    QString text = decode(name);
    if (decode.hasError())
        return u"isn't UTF-8"_s;
    if (text.endsWith(u'/'))
        text.chop(1);
    for (const QString &component : text.split(u'/')) {
        if (QString problem = componentProblem(component); !problem.isEmpty())
            return problem;
    }
    return {};
}

QString entriesProblem(const QList<PackageEntry> &entries, quint64 packageBytes, const QByteArray &program,
                       const PackageLimits &limits)
{
    if (entries.size() > limits.entries)
        return u"it has more than %1 entries"_s.arg(limits.entries);

    TakenPaths taken;
    quint64 unpacked = 0;
    bool programFound = false;
    for (const PackageEntry &entry : entries) {
        QString problem = nameProblem(entry.name);
        if (problem.isEmpty() && entry.name.size() > limits.nameBytes)
            problem = u"is longer than %1 bytes"_s.arg(limits.nameBytes);
        if (problem.isEmpty())
            problem = stampProblem(entry);
        if (problem.isEmpty())
            problem = kindProblem(entry);
        if (problem.isEmpty())
            problem = taken.add(QString::fromUtf8(entry.name));
        if (problem.isEmpty() && taken.count() > limits.entries)
            return u"it has more than %1 entries, the folders on their way included"_s.arg(limits.entries);
        if (!problem.isEmpty())
            return u"its entry “%1” %2"_s.arg(shown(entry.name), problem);

        // Each is held against the limit before it is added: no sum of lies runs over.
        if (entry.size > limits.unpackedBytes || (unpacked += entry.size) > limits.unpackedBytes)
            return u"it unpacks to more than %1 bytes"_s.arg(limits.unpackedBytes);
        programFound = programFound || entry.name == program;
    }
    if (unpacked > limits.freeOfRatio && unpacked / limits.ratio > packageBytes)
        return u"it unpacks to more than %1 times its size"_s.arg(limits.ratio);
    if (!programFound)
        return u"the program “%1” isn't in it"_s.arg(QString::fromUtf8(program));
    return {};
}

} // namespace corvane::guardian
