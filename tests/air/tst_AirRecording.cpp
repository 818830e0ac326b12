#include "tests/air/Transmission.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The recording that the companion makes beside a transmission.
class tst_AirRecording : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recording();
    void numbers();
    void bursts();
    void noDirectory_data();
    void noDirectory();
    void onlyWhenAskedFor();
};

void tst_AirRecording::recording()
{
    Transmission call({u"stream=200000"_s, u"stream-text=end"_s, u"exit=2"_s});
    const QString directory = call.recordTo(call.filePath(u"b"_s));

    QCOMPARE(call.run(), 2);

    const QString file = directory + QDir::separator() + "corvane-0001.mkv"_L1;
    QCOMPARE(contentsOf(file), QByteArray(200000, '\0') + "end");
    QCOMPARE(call.said(), "[air] gravando em " + file.toUtf8() + '\n');
    const QFile::Permissions permissions = QFile::permissions(file);
    QVERIFY(
        permissions.testFlags(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther));
    QVERIFY(!permissions.testFlag(QFile::ExeOwner));
}

void tst_AirRecording::numbers()
{
    Transmission call({u"stream=1"_s, u"exit=2"_s});
    const QString directory = call.recordTo(call.filePath(u"c"_s));
    writeFile(directory + "/corvane-0007.mkv"_L1, "old");
    writeFile(directory + "/corvane-0099.txt"_L1, "other");

    call.run();
    call.run();

    QCOMPARE(entriesOf(directory), QStringList({u"corvane-0007.mkv"_s, u"corvane-0008.mkv"_s,
                                                u"corvane-0009.mkv"_s, u"corvane-0099.txt"_s}));
    QCOMPARE(contentsOf(directory + "/corvane-0007.mkv"_L1), "old"_ba);
}

void tst_AirRecording::bursts()
{
    QStringList steps;
    for (int i = 0; i < 9; ++i) // together more than may wait
        steps << u"stream=4000000"_s << u"pause=100"_s;
    Transmission call(steps << u"exit=2"_s);
    const QString file = call.recordTo(call.filePath(u"c"_s)) + "/corvane-0001.mkv"_L1;

    QCOMPARE(call.run(), 2);

    QCOMPARE(call.said().count("[air]"), 1); // where it is recorded
    QCOMPARE(QFileInfo(file).size(), 36'000'000);
}

void tst_AirRecording::noDirectory_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QByteArray>("why");

    QTest::newRow("missing") << u"missing"_s << systemWords(ENOENT, 3); // ERROR_PATH_NOT_FOUND
    QTest::newRow("a file") << u"file"_s << systemWords(ENOTDIR, 267);  // ERROR_DIRECTORY
}

void tst_AirRecording::noDirectory()
{
    QFETCH(const QString, what);
    QFETCH(const QByteArray, why);
    Transmission call({u"stream=40000000"_s, u"exit=2"_s}); // more than may wait for a disk
    createFile(call.filePath(u"c/file"_s));
    const QString place = call.recordTo(call.filePath(u"c/"_s + what));

    QCOMPARE(call.run(), 2);
    QCOMPARE(call.said(), recordingLost(place, why));
}

void tst_AirRecording::onlyWhenAskedFor()
{
    Transmission call({u"stream=40000000"_s, u"exit=2"_s}); // more than may wait for a disk

    QCOMPARE(call.run(), 2);
    QCOMPARE(call.said(), QByteArray());
    QCOMPARE(entriesOf(call.filePath(u"a"_s)), QStringList{executableName(u"ffmpeg"_s)});
}

CORVANE_TEST(tst_AirRecording, QCoreApplication)
#include "tst_AirRecording.moc"
