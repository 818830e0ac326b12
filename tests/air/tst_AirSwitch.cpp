#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

/// An ffmpeg that has all muxers with these words in their help.
QByteArray encoderWith(const QByteArray &words)
{
    return "#!/bin/sh\necho '" + words + "'\n";
}

constexpr auto allWords = "attempt_recovery recover_any_error use_fifo hash cluster_time_limit";

constexpr QFile::Permissions executable = QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                          QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;

/// A program's folder with corvane-air in a folder of it, and an ffmpeg on PATH.
class Installation
{
public:
    explicit Installation(const QByteArray &encoder)
    {
        writeFile(path(u"corvane"_s), "program");
        QDir().mkpath(path(u"air"_s));
        QFile::copy(QStringLiteral(CORVANE_AIR), path(u"air/ffmpeg"_s));
        QFile::copy(QStringLiteral(CORVANE_AIR_SWITCH), path(u"air/corvane-air"_s));
        if (!encoder.isEmpty()) {
            writeFile(path(u"bin/ffmpeg"_s), encoder);
            QFile::setPermissions(path(u"bin/ffmpeg"_s), executable);
        }
    }

    [[nodiscard]] QString path(const QString &name) const { return m_dir.filePath(name); }

    int call(const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, path(u"bin"_s));
        process.setProcessEnvironment(environment);
        if (bound)
            bindToPermissions(process);
        process.start(path(u"air/corvane-air"_s), arguments);
        process.waitForFinished();
        output = QString::fromUtf8(process.readAllStandardOutput());
        error = QString::fromUtf8(process.readAllStandardError());
        return process.exitCode();
    }

    bool bound = false; ///< to the permissions of files, even as root
    QString output;
    QString error;

private:
    QTemporaryDir m_dir;
};

} // namespace

/// corvane-air in an installation.
class tst_AirSwitch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onAndOff();
    void onTwice();
    void refused_data();
    void refused();
    void anotherEncoderStays();
    void folderThatCannotBeWritten();
    void recordings();
    void misuse();
};

void tst_AirSwitch::onAndOff()
{
    Installation here(encoderWith(allWords));
    QCOMPARE(here.call({u"status"_s}), 3);
    QVERIFY(here.output.startsWith("desligado\nffmpeg: "_L1 + here.path(u"bin/ffmpeg"_s) + u'\n'));

    QCOMPARE(here.call({u"on"_s}), 0);
    QVERIFY(here.output.startsWith("ligado: "_L1 + here.path(u"ffmpeg"_s) + "\nffmpeg: "_L1 +
                                   here.path(u"bin/ffmpeg"_s) + u'\n'));
    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)), contentsOf(here.path(u"air/ffmpeg"_s)));
    QVERIFY(QFileInfo(here.path(u"ffmpeg"_s)).isExecutable());
    QCOMPARE(here.call({u"status"_s}), 0);
    QVERIFY(here.output.startsWith("ligado: "_L1 + here.path(u"ffmpeg"_s) + u'\n'));

    QCOMPARE(here.call({u"off"_s}), 0);
    QVERIFY(!QFile::exists(here.path(u"ffmpeg"_s)));
    QCOMPARE(here.call({u"off"_s}), 0);
    QCOMPARE(here.call({u"status"_s}), 3);
}

void tst_AirSwitch::onTwice()
{
    Installation here(encoderWith(allWords));

    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.call({u"on"_s}), 0);

    QCOMPARE(entriesOf(here.path(QString())), QStringList({u"air"_s, u"bin"_s, u"corvane"_s, u"ffmpeg"_s}));
}

void tst_AirSwitch::refused_data()
{
    QTest::addColumn<QByteArray>("encoder");
    QTest::addColumn<QString>("why");

    QTest::newRow("no ffmpeg") << QByteArray() << u"não há ffmpeg no PATH"_s;
    QTest::newRow("one without recovery")
        << encoderWith("use_fifo hash cluster_time_limit") << u"falta attempt_recovery (muxer fifo)"_s;
    QTest::newRow("one without the hash muxer")
        << encoderWith("attempt_recovery recover_any_error use_fifo cluster_time_limit")
        << u"falta hash (muxer hash)"_s;
}

void tst_AirSwitch::refused()
{
    QFETCH(const QByteArray, encoder);
    QFETCH(const QString, why);
    Installation here(encoder);

    QCOMPARE(here.call({u"on"_s}), 1);

    QVERIFY2(here.error.startsWith(u"não foi ligado: "_s) && here.error.trimmed().endsWith(why),
             qPrintable(here.error));
    QVERIFY(!QFile::exists(here.path(u"ffmpeg"_s)));
}

void tst_AirSwitch::anotherEncoderStays()
{
    Installation here(encoderWith(allWords));
    writeFile(here.path(u"ffmpeg"_s), "another");

    QCOMPARE(here.call({u"on"_s}), 1);
    QCOMPARE(here.call({u"off"_s}), 1);
    QCOMPARE(here.call({u"status"_s}), 3);

    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)), "another"_ba);
    QVERIFY(here.output.contains(u"há um outro ffmpeg"_s));
}

void tst_AirSwitch::folderThatCannotBeWritten()
{
    Installation here(encoderWith(allWords));
    QVERIFY(QFile::setPermissions(here.path(QString()), executable));
    here.bound = true;

    QCOMPARE(here.call({u"on"_s}), 1);

    QVERIFY2(here.error.endsWith("Permission denied\n"_L1), qPrintable(here.error));
}

void tst_AirSwitch::recordings()
{
    Installation here(encoderWith(allWords));
    writeFile(here.path(u"recordings"_s), "/films\n");

    here.call({u"status"_s});

    QVERIFY(here.output.endsWith(u"gravações: /films\n"_s));
}

void tst_AirSwitch::misuse()
{
    Installation here(encoderWith(allWords));

    QCOMPARE(here.call({}), 2);
    QCOMPARE(here.call({u"maybe"_s}), 2);
    QCOMPARE(here.call({u"on"_s, u"a"_s, u"b"_s}), 2);
    QCOMPARE(here.call({u"on"_s, here.path(u"air"_s)}), 1);
    QVERIFY(here.error.contains(u"não há corvane em"_s));
    QCOMPARE(here.call({u"--help"_s}), 0);
    QVERIFY(here.output.startsWith("corvane-air on|off|status"_L1));
}

CORVANE_TEST(tst_AirSwitch, QCoreApplication)
#include "tst_AirSwitch.moc"
