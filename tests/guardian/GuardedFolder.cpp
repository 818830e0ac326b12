#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"

#include "tests/support/Processes.h"
#include "tools/guardian/FileNames.h"
#include "tools/guardian/OwnFolder.h"
#include "update/UpdateFiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <chrono>

namespace corvane::test {

using namespace Qt::StringLiterals;

GuardedFolder::GuardedFolder()
{
    // The copies of the program find their libraries there.
    static const QString searched = pathForCopies(qEnvironmentVariable("PATH"));
    qputenv("PATH", searched.toLocal8Bit());
    install(path(u"app"_s), "0.1.0", "beats");
    QDir().mkpath(runtimeDir() + "/update"_L1);
    QCOMPARE(guardian::makeOwnFolder(installation().own()), QString());
}

guardian::Installation GuardedFolder::installation() const
{
    return {QFileInfo(path(u"app"_s)).canonicalFilePath(), guardian::programFileName(), {}};
}

guardian::GuardianSettings GuardedFolder::settings() const
{
    guardian::GuardianSettings settings;
    settings.installation = installation();
    settings.runtimeDirectory = runtimeDir();
    settings.lookInterval = std::chrono::milliseconds(20);
    settings.silence = std::chrono::milliseconds(300);
    settings.restarts.firstDelayMs = 1;
    return settings;
}

void GuardedFolder::install(const QString &folder, const QByteArray &version, const QByteArray &behaviour)
{
    writeFile(folder + "/version"_L1, version);
    writeFile(folder + "/behaviour"_L1, behaviour);
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_FAKE_CORVANE), folder + u'/' + guardian::programFileName()));
}

QList<ZipItem> GuardedFolder::packageOf(const QByteArray &version, const QByteArray &behaviour)
{
    return {
        {guardian::programFileName().toLatin1(), contentsOf(QStringLiteral(CORVANE_FAKE_CORVANE)), 0100755},
        {"version", version},
        {"behaviour", behaviour}};
}

QString GuardedFolder::stagedPath(const QByteArray &version) const
{
    return updateDirectory(runtimeDir()) + u'/' + packageFileName(QString::fromLatin1(version));
}

void GuardedFolder::stage(const QByteArray &version, const QList<ZipItem> &items) const
{
    QVERIFY(writeZip(stagedPath(version), items));
    writeFile(readyFilePath(runtimeDir()),
              readyUpdateText({stagedPath(version), QString::fromLatin1(version), installation().directory}));
}

QByteArray GuardedFolder::manifestOf(const QByteArray &version) const
{
    const QByteArray digest =
        QCryptographicHash::hash(contentsOf(stagedPath(version)), QCryptographicHash::Sha256).toHex();
    return R"({"version":")" + version +
           R"(","platforms":{"windows-x64":{"url":"https://host.example/p.zip","sha256":")" + digest +
           R"("}}})";
}

void GuardedFolder::request() const
{
    writeFile(applyRequestPath(runtimeDir()), {});
}

bool GuardedFolder::isRequested() const
{
    return QFile::exists(applyRequestPath(runtimeDir()));
}

void GuardedFolder::order(const QString &what) const
{
    writeFile(runtimeDir() + "/do-"_L1 + what, {});
}

QStringList GuardedFolder::starts() const
{
    return QString::fromUtf8(contentsOf(runtimeDir() + "/starts"_L1)).split(u'\n', Qt::SkipEmptyParts);
}

QByteArray GuardedFolder::versionIn(const QString &folder)
{
    return contentsOf(folder + "/version"_L1);
}

} // namespace corvane::test
