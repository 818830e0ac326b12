#include "tests/air/AirInstallation.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// corvane-air and what only Unix has: permissions that bind, a disk that a test fills, pipes with a name.
class tst_AirSwitchPosix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void folderThatCannotBeWritten();
    void fullDisk();
    void recordingsInNoPlainFile();
};

void tst_AirSwitchPosix::folderThatCannotBeWritten()
{
    AirInstallation here(allWords);
    constexpr QFile::Permissions readable = QFile::ReadOwner | QFile::ExeOwner;
    QVERIFY(QFile::setPermissions(here.path(QString()), readable));
    here.bound = true;

    const QString why = here.native(u"ffmpeg"_s) + u": Permission denied\n"_s;

    QCOMPARE(here.call({u"on"_s}), 1);
    QCOMPARE(here.error, u"não foi ligado: "_s + why);

    QVERIFY(QFile::setPermissions(here.path(QString()), readable | QFile::WriteOwner));
    QCOMPARE(here.call({u"on"_s}), 0);
    QVERIFY(QFile::setPermissions(here.path(QString()), readable));
    QCOMPARE(here.call({u"off"_s}), 1);
    QCOMPARE(here.error, u"não foi desligado: "_s + why);
    QVERIFY(QFile::setPermissions(here.path(QString()), readable | QFile::WriteOwner)); // removable
}

void tst_AirSwitchPosix::fullDisk()
{
    AirInstallation here(allWords);
    const QString folder = here.path(u"small"_s);
    QVERIFY(QDir().mkpath(folder));
    const SmallDisk disk(folder, 64);
    if (!disk.isMounted())
        QSKIP("this system lets the test mount no file system of its own");
    writeFile(folder + "/corvane"_L1, "program");

    QCOMPARE(here.call({u"on"_s, folder}), 1);
    QVERIFY2(here.error.startsWith(u"não foi ligado: "_s + folder + u"/ffmpeg: "_s), qPrintable(here.error));
    QCOMPARE(entriesOf(folder), QStringList{u"corvane"_s});
}

void tst_AirSwitchPosix::recordingsInNoPlainFile()
{
    AirInstallation here(allWords);
    const QByteArray pipe = QFile::encodeName(here.path(u"recordings"_s));
    QCOMPARE(::mkfifo(pipe.constData(), 0600), 0);
    const int end = ::open(pipe.constData(), O_RDWR | O_CLOEXEC);
    QCOMPARE(::write(end, "/films\n", 7), 7);

    here.call({u"status"_s});
    ::close(end);

    QVERIFY2(here.output.contains(u"gravações: nenhuma ("_s), qPrintable(here.output));
}

CORVANE_TEST(tst_AirSwitchPosix, QCoreApplication)
#include "tst_AirSwitchPosix.moc"
