#include "tests/support/Processes.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

const QByteArray noOther = "ffmpeg (tee-shim): no other ffmpeg on PATH\n";

/// Three folders for a PATH, and the call of the shim that lies in the first.
class ShimCall
{
public:
    ShimCall()
    {
        for (const QString &folder : {u"a"_s, u"b"_s, u"c"_s})
            QDir(m_dir.path()).mkpath(folder);
        QFile::copy(QStringLiteral(CORVANE_TEE_SHIM), at(u"a"_s));
        setPath({u"a"_s, u"b"_s, u"c"_s});
    }

    /// "ffmpeg" in a folder.
    [[nodiscard]] QString at(const QString &folder) const { return m_dir.filePath(folder + "/ffmpeg"_L1); }
    [[nodiscard]] QString filePath(const QString &name) const { return m_dir.filePath(name); }

    void setPath(const QStringList &folders)
    {
        QStringList paths;
        for (const QString &folder : folders)
            paths << (folder.isEmpty() ? folder : m_dir.filePath(folder));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, paths.join(u':'));
        m_process.setProcessEnvironment(environment);
    }

    void putEncoder(const QString &folder) const { QFile::copy(fakeFfmpeg(), at(folder)); }

    QProcess &start(const QStringList &arguments)
    {
        m_process.start(at(u"a"_s), arguments);
        return m_process;
    }

    /// Runs to the end and answers the exit code.
    int run(const QStringList &arguments)
    {
        start(arguments);
        return m_process.waitForFinished(20000) ? m_process.exitCode() : -1;
    }

    [[nodiscard]] QProcess &process() { return m_process; }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
};

QString argumentsStep(const ShimCall &call)
{
    return "fake:args="_L1 + stepText(call.filePath(u"arguments"_s).toUtf8()) + ",exit=0"_L1;
}

} // namespace

/// The built shim before a fake encoder.
class tst_TeeShim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exitCode_data();
    void exitCode();
    void crash();
    void processIdIsKept();
    void signalsReachTheEncoder();
    void standardInput();
    void standardOutputAndError();
    void argumentsByteForByte();
    void argumentsThatAreNoText();
    void teeIsRewritten();
    void search_data();
    void search();
    void encoderThatCannotBeRun();
};

void tst_TeeShim::exitCode_data()
{
    QTest::addColumn<int>("code");

    QTest::newRow("success") << 0;
    QTest::newRow("failure") << 1;
    QTest::newRow("as a shell says it") << 127;
    QTest::newRow("largest") << 255;
}

void tst_TeeShim::exitCode()
{
    QFETCH(const int, code);
    ShimCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:exit=%1"_s.arg(code)}), code);
    QCOMPARE(call.process().exitStatus(), QProcess::NormalExit);
}

void tst_TeeShim::crash()
{
    ShimCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:crash"_s}), crashedExitCode());
    QCOMPARE(call.process().exitStatus(), QProcess::CrashExit);
}

void tst_TeeShim::processIdIsKept()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    const QString pids = call.filePath(u"pids"_s);

    QProcess &encoder = call.start({"fake:append="_L1 + stepText(pids.toUtf8())});
    QVERIFY(waitUntil([&] { return fileLines(pids).size() == 1; }));

    QCOMPARE(fileLines(pids).constFirst(), QString::number(encoder.processId()));
    QCOMPARE(childProcesses(), QList<qint64>{encoder.processId()});
    encoder.write("q");
    QVERIFY(encoder.waitForFinished());
}

void tst_TeeShim::signalsReachTheEncoder()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    QProcess &encoder = call.start({u"fake:stderr=up"_s});
    QVERIFY(waitUntil([&] { return encoder.readAllStandardError() == "up"; }));
    const qint64 pid = encoder.processId();

    killProcess(pid);

    QVERIFY(encoder.waitForFinished());
    QCOMPARE(encoder.exitStatus(), QProcess::CrashExit);
    QCOMPARE(encoder.exitCode(), killedExitCode());
    QVERIFY(!processExists(pid));
}

void tst_TeeShim::standardInput()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    const QString input = call.filePath(u"input"_s);
    QProcess &encoder =
        call.start({"fake:quit-code=5,input="_L1 + stepText(input.toUtf8()) + ",stderr=up"_L1});
    QVERIFY(waitUntil([&] { return encoder.readAllStandardError() == "up"; }));

    encoder.write("q");

    QVERIFY(encoder.waitForFinished());
    QCOMPARE(encoder.exitCode(), 5);
    QCOMPARE(fileLines(input), QStringList{u"q"_s});
}

void tst_TeeShim::standardOutputAndError()
{
    ShimCall call;
    call.putEncoder(u"b"_s);

    QCOMPARE(call.run({u"fake:stdout=%00out%FF%0A,stderr=err%0D%0A,exit=0"_s}), 0);

    QCOMPARE(call.process().readAllStandardOutput(), QByteArray("\0out\xff\n", 6));
    QCOMPARE(call.process().readAllStandardError(), QByteArray("err\r\n"));
}

void tst_TeeShim::argumentsByteForByte()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    const QStringList arguments{u"-hide_banner"_s,        QString(),
                                u"one two  three"_s,      u"\"double\" 'single' `back`"_s,
                                uR"(back\slash\\ \:)"_s,  u"$HOME ${PATH} %PATH% *"_s,
                                u"ação — münchen 日本"_s, u"srt://h:1?passphrase=a&b#c"_s,
                                u"[f=flv:o=a\\:b]x|y"_s,  QString(20000, u'x'),
                                argumentsStep(call)};

    QCOMPARE(call.run(arguments), 0);

    QFile seen(call.filePath(u"arguments"_s));
    QVERIFY(seen.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(seen.readAll()), arguments.join(u'\n') + u'\n');
}

void tst_TeeShim::argumentsThatAreNoText()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    QProcess &shell = call.process();
    shell.start(u"/bin/sh"_s, {u"-c"_s, uR"sh(exec "$0" "$(printf '\377\376x')" "$1")sh"_s, call.at(u"a"_s),
                               argumentsStep(call)});
    QVERIFY(shell.waitForFinished());

    QFile seen(call.filePath(u"arguments"_s));
    QVERIFY(seen.open(QIODevice::ReadOnly));
    QCOMPARE(seen.readLine(), QByteArray("\xff\xfex\n"));
}

void tst_TeeShim::teeIsRewritten()
{
    ShimCall call;
    call.putEncoder(u"b"_s);
    const QString target = uR"([f=flv:fifo_options=a=1\:b=2]x|[f=flv]%1)"_s.arg(argumentsStep(call));

    QCOMPARE(call.run({u"-i"_s, u"film.mp4"_s, u"-f"_s, u"tee"_s, target}), 0);

    QCOMPARE(fileLines(call.filePath(u"arguments"_s)),
             QStringList({u"-i"_s, u"film.mp4"_s, u"-map"_s, u"0:v"_s, u"-map"_s, u"0:a?"_s, u"-c:a"_s,
                          u"aac"_s, u"-flags"_s, u"+global_header"_s, u"-f"_s, u"tee"_s,
                          uR"([f=flv:fifo_options=a=1\\\:b=2]x|[f=flv]%1)"_s.arg(argumentsStep(call))}));
}

void tst_TeeShim::search_data()
{
    QTest::addColumn<QStringList>("path");
    QTest::addColumn<QString>("atB"); ///< what "ffmpeg" in the second folder is
    QTest::addColumn<bool>("encoderInC");
    QTest::addColumn<int>("exitCode"); ///< the encoder's is 3

    const QStringList all{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("next folder of the path") << all << u"encoder"_s << false << 3;
    QTest::newRow("folders without one are passed over") << all << QString() << true << 3;
    QTest::newRow("its own folder isn't on the path") << QStringList{u"c"_s} << QString() << true << 3;
    QTest::newRow("its own folder comes last") << QStringList{u"c"_s, u"a"_s} << QString() << true << 3;
    QTest::newRow("a folder that isn't there")
        << QStringList{u"a"_s, u"none"_s, u"c"_s} << QString() << true << 3;
    QTest::newRow("the same folder twice") << QStringList{u"a"_s, u"a"_s, u"c"_s} << QString() << true << 3;
    QTest::newRow("symbolic link to itself") << all << u"symlink"_s << true << 3;
    QTest::newRow("hard link to itself") << all << u"hard link"_s << true << 3;
    QTest::newRow("second copy") << all << u"copy"_s << true << 3;
    QTest::newRow("a folder called ffmpeg") << all << u"folder"_s << true << 3;
    QTest::newRow("a file without execute permission") << all << u"plain file"_s << true << 3;
    QTest::newRow("a dangling link") << all << u"dangling link"_s << true << 3;

    QTest::newRow("nothing on an empty path") << QStringList() << QString() << true << 127;
    QTest::newRow("only itself") << all << QString() << false << 127;
    QTest::newRow("only a symbolic link to itself") << all << u"symlink"_s << false << 127;
    QTest::newRow("only a hard link to itself") << all << u"hard link"_s << false << 127;
    QTest::newRow("only a second copy") << all << u"copy"_s << false << 127;
    QTest::newRow("only a file without execute permission") << all << u"plain file"_s << false << 127;
}

void tst_TeeShim::search()
{
    QFETCH(const QStringList, path);
    QFETCH(const QString, atB);
    QFETCH(const bool, encoderInC);
    QFETCH(const int, exitCode);
    ShimCall call;
    if (atB == "encoder"_L1)
        call.putEncoder(u"b"_s);
    else if (atB == "symlink"_L1)
        QVERIFY(QFile::link(call.at(u"a"_s), call.at(u"b"_s)));
    else if (atB == "hard link"_L1)
        QCOMPARE(::link(QFile::encodeName(call.at(u"a"_s)).constData(),
                        QFile::encodeName(call.at(u"b"_s)).constData()),
                 0);
    else if (atB == "copy"_L1)
        QVERIFY(QFile::copy(call.at(u"a"_s), call.at(u"b"_s)));
    else if (atB == "folder"_L1)
        QVERIFY(QDir().mkpath(call.at(u"b"_s)));
    else if (atB == "plain file"_L1)
        createFile(call.at(u"b"_s));
    else if (atB == "dangling link"_L1)
        QVERIFY(QFile::link(call.filePath(u"nowhere"_s), call.at(u"b"_s)));
    if (encoderInC)
        call.putEncoder(u"c"_s);
    call.setPath(path);

    QCOMPARE(call.run({u"fake:exit=3"_s}), exitCode);
    QCOMPARE(call.process().readAllStandardError(), exitCode == 127 ? noOther : QByteArray());
    QCOMPARE(call.process().readAllStandardOutput(), QByteArray());
}

void tst_TeeShim::encoderThatCannotBeRun()
{
    ShimCall call;
    QFile file(call.at(u"b"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("\x7fno program\n");
    file.close();
    QVERIFY(file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser));

    QCOMPARE(call.run({u"-version"_s}), 127);
    QCOMPARE(QString::fromUtf8(call.process().readAllStandardError()),
             u"ffmpeg (tee-shim): %1: Exec format error\n"_s.arg(call.at(u"b"_s)));
}

QTEST_GUILESS_MAIN(tst_TeeShim)
#include "tst_TeeShim.moc"
