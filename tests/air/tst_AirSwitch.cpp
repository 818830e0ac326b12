#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

constexpr auto allWords = "attempt_recovery recover_any_error use_fifo hash cluster_time_limit";

constexpr QFile::Permissions executable = QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                          QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;

/// A program's folder with corvane-air in a folder of it, and an ffmpeg on PATH.
class Installation
{
public:
    /// `help` is what the ffmpeg on PATH answers to every question about a muxer; empty: there is none.
    explicit Installation(const QByteArray &help)
        : m_help(help)
    {
        writeFile(path(executableName(u"corvane"_s)), "program");
        QDir().mkpath(path(u"air"_s));
        QFile::copy(QStringLiteral(CORVANE_AIR), path(u"air/"_s + executableName(u"ffmpeg"_s)));
        QFile::copy(QStringLiteral(CORVANE_AIR_SWITCH), path(u"air/"_s + executableName(u"corvane-air"_s)));
        if (!help.isEmpty()) {
            QDir().mkpath(path(u"bin"_s));
            QFile::copy(fakeFfmpeg(), path(realFfmpeg));
        }
    }

    [[nodiscard]] QString path(const QString &name) const { return m_dir.filePath(name); }
    [[nodiscard]] QString native(const QString &name) const { return QDir::toNativeSeparators(path(name)); }

    void start(QProcess &process, const QString &program, const QStringList &arguments) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, native(u"bin"_s));
        environment.insert(u"FAKE_FFMPEG_HELP"_s, QString::fromUtf8(m_help));
        process.setProcessEnvironment(environment);
#ifdef Q_OS_UNIX
        if (bound)
            bindToPermissions(process);
#endif
        process.start(path(program), arguments);
    }

    int call(const QStringList &arguments)
    {
        QProcess process;
        start(process, u"air/corvane-air"_s, arguments);
        process.waitForFinished();
        output = QString::fromUtf8(process.readAllStandardOutput());
        error = QString::fromUtf8(process.readAllStandardError());
        return process.exitCode();
    }

    bool bound = false; ///< to the permissions of files, even as root
    QString output;
    QString error;

    const QString realFfmpeg = u"bin/"_s + executableName(u"ffmpeg"_s);

private:
    QTemporaryDir m_dir;
    QByteArray m_help;
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
    void whileItRuns();
    void recordings();
    void misuse();
};

void tst_AirSwitch::onAndOff()
{
    Installation here(allWords);
    QCOMPARE(here.call({u"status"_s}), 3);
    QVERIFY(here.output.startsWith("desligado\nffmpeg: "_L1 + here.native(here.realFfmpeg) + u'\n'));

    QCOMPARE(here.call({u"on"_s}), 0);
    QVERIFY(here.output.startsWith("ligado: "_L1 + here.native(u"ffmpeg"_s) + "\nffmpeg: "_L1 +
                                   here.native(here.realFfmpeg) + u'\n'));
    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)),
             contentsOf(here.path(u"air/"_s + executableName(u"ffmpeg"_s))));
    QProcess companion;
    here.start(companion, u"ffmpeg"_s, {u"fake:exit=3"_s}); // as the program starts it
    QVERIFY(companion.waitForFinished());
    QCOMPARE(companion.exitCode(), 3);
    QCOMPARE(here.call({u"status"_s}), 0);
    QVERIFY(here.output.startsWith("ligado: "_L1 + here.native(u"ffmpeg"_s) + u'\n'));

    QCOMPARE(here.call({u"off"_s}), 0);
    QVERIFY(!QFile::exists(here.path(u"ffmpeg"_s)));
    QCOMPARE(here.call({u"off"_s}), 0);
    QCOMPARE(here.call({u"status"_s}), 3);
}

void tst_AirSwitch::onTwice()
{
    Installation here(allWords);

    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.call({u"on"_s}), 0);

    QCOMPARE(entriesOf(here.path(QString())),
             QStringList({u"air"_s, u"bin"_s, executableName(u"corvane"_s), u"ffmpeg"_s}));
}

void tst_AirSwitch::refused_data()
{
    QTest::addColumn<QByteArray>("encoder");
    QTest::addColumn<QString>("why");

    QTest::newRow("no ffmpeg") << QByteArray() << u"não há ffmpeg no PATH"_s;
    QTest::newRow("one without recovery")
        << QByteArray("use_fifo hash cluster_time_limit") << u"falta attempt_recovery (muxer fifo)"_s;
    QTest::newRow("one without the hash muxer")
        << QByteArray("attempt_recovery recover_any_error use_fifo cluster_time_limit")
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
    Installation here(allWords);
    writeFile(here.path(u"ffmpeg"_s), "another");

    QCOMPARE(here.call({u"on"_s}), 1);
    QCOMPARE(here.call({u"off"_s}), 1);
    QCOMPARE(here.call({u"status"_s}), 3);

    QCOMPARE(contentsOf(here.path(u"ffmpeg"_s)), "another"_ba);
    QVERIFY(here.output.contains(u"há um outro ffmpeg"_s));
}

void tst_AirSwitch::folderThatCannotBeWritten()
{
#ifdef Q_OS_WIN
    QSKIP("rights of folders are no permissions of files on Windows");
#endif
    Installation here(allWords);
    QVERIFY(QFile::setPermissions(here.path(QString()), executable));
    here.bound = true;

    QCOMPARE(here.call({u"on"_s}), 1);

    QVERIFY2(here.error.endsWith("Permission denied\n"_L1), qPrintable(here.error));
}

void tst_AirSwitch::whileItRuns()
{
    Installation here(allWords);
    QCOMPARE(here.call({u"on"_s}), 0);
    QProcess companion;
    here.start(companion, u"ffmpeg"_s, {u"fake:stderr=up"_s});
    QVERIFY(waitUntil([&] { return companion.readAllStandardError() == "up"; }));

#ifdef Q_OS_WIN // which keeps the file of a program that runs
    QCOMPARE(here.call({u"on"_s}), 1);
    QVERIFY2(here.error.endsWith(" (feche o CORVANE antes)\n"_L1), qPrintable(here.error));
    QCOMPARE(here.call({u"off"_s}), 1);
    QVERIFY2(here.error.endsWith(" (feche o CORVANE antes)\n"_L1), qPrintable(here.error));
    QCOMPARE(here.call({u"status"_s}), 0);
    QCOMPARE(entriesOf(here.path(QString())),
             QStringList({u"air"_s, u"bin"_s, executableName(u"corvane"_s), u"ffmpeg"_s}));
#else
    QCOMPARE(here.call({u"on"_s}), 0);
    QCOMPARE(here.call({u"off"_s}), 0);
#endif
    companion.write("q");
    QVERIFY(companion.waitForFinished());
}

void tst_AirSwitch::recordings()
{
    Installation here(allWords);
    writeFile(here.path(u"recordings"_s), "/films\n");

    here.call({u"status"_s});

    QVERIFY(here.output.endsWith(u"gravações: /films\n"_s));
}

void tst_AirSwitch::misuse()
{
    Installation here(allWords);

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
