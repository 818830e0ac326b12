#include "engine/host/ToolResolver.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Programs have a suffix on Windows, which the name to look for lacks.
class tst_ToolResolver_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void findsTheSuffixInPath_data();
    void findsTheSuffixInPath();
    void besideTheProgramTheNameStandsAsItIs_data();
    void besideTheProgramTheNameStandsAsItIs();

private:
    [[nodiscard]] QString find(const QString &path) const;
    void make(const QString &file) const;

    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_root;
};

void tst_ToolResolver_win::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_root = QFileInfo(m_directory->path()).canonicalFilePath();
    QVERIFY(QDir().mkpath(m_root + "/program"_L1));
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_TOOL_PROBE), m_root + "/program/tool_probe.exe"_L1));
}

/// Path of "ffmpeg" for a program with nothing beside it and that PATH, the root left out.
QString tst_ToolResolver_win::find(const QString &path) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, path);
    QProcess program;
    program.setProcessEnvironment(environment);
    program.start(m_root + "/program/tool_probe.exe"_L1, {u"ffmpeg"_s});
    if (!program.waitForFinished() || program.exitCode() != 0)
        return u"(no answer)"_s;
    const QString found = QString::fromLocal8Bit(program.readAllStandardOutput());
    return found.startsWith(m_root + u'/', Qt::CaseInsensitive) ? found.sliced(m_root.size() + 1) : found;
}

void tst_ToolResolver_win::make(const QString &file) const
{
    const QString full = m_root + u'/' + file;
    QVERIFY(QDir().mkpath(QFileInfo(full).path()));
    QFile made(full);
    QVERIFY(made.open(QIODevice::WriteOnly));
    made.write("MZ");
}

void tst_ToolResolver_win::findsTheSuffixInPath_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("found");

    QTest::newRow("a program") << QStringList{u"path/ffmpeg.exe"_s} << u"path/ffmpeg.exe"_s;
    QTest::newRow("in capitals") << QStringList{u"path/FFMPEG.EXE"_s} << u"path/FFMPEG.EXE"_s;
    QTest::newRow("the first directory of two")
        << QStringList{u"path/ffmpeg.exe"_s, u"second/ffmpeg.exe"_s} << u"path/ffmpeg.exe"_s;
    QTest::newRow("the second, if the first has none")
        << QStringList{u"second/ffmpeg.exe"_s} << u"second/ffmpeg.exe"_s;
    QTest::newRow("a directory with a name of its own")
        << QStringList{u"Transmissão ñ 日本/ffmpeg.exe"_s} << u"Transmissão ñ 日本/ffmpeg.exe"_s;
    QTest::newRow("a document isn't one") << QStringList{u"path/ffmpeg.txt"_s} << QString();
    QTest::newRow("a longer name isn't one") << QStringList{u"path/ffmpeg2.exe"_s} << QString();
    QTest::newRow("nothing") << QStringList() << QString();
}

void tst_ToolResolver_win::findsTheSuffixInPath()
{
    QFETCH(const QStringList, files);
    QFETCH(const QString, found);

    for (const QString &file : files)
        make(file);
    const QStringList path{m_root + "/path"_L1, m_root + "/second"_L1, m_root + u"/Transmissão ñ 日本"_s,
                           pathForCopies(m_root + "/nowhere"_L1)};
    QCOMPARE(find(path.join(QDir::listSeparator())).compare(found, Qt::CaseInsensitive), 0);
}

void tst_ToolResolver_win::besideTheProgramTheNameStandsAsItIs_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("found");

    QTest::newRow("with its suffix it isn't found there")
        << QStringList{u"program/ffmpeg.exe"_s, u"path/ffmpeg.exe"_s} << u"path/ffmpeg.exe"_s;
    QTest::newRow("without one it is, before any PATH")
        << QStringList{u"program/ffmpeg"_s, u"path/ffmpeg.exe"_s} << u"program/ffmpeg"_s;
}

void tst_ToolResolver_win::besideTheProgramTheNameStandsAsItIs()
{
    QFETCH(const QStringList, files);
    QFETCH(const QString, found);

    for (const QString &file : files)
        make(file);
    const QStringList path{m_root + "/path"_L1, pathForCopies(m_root + "/nowhere"_L1)};
    QCOMPARE(find(path.join(QDir::listSeparator())), found);
}

CORVANE_TEST(tst_ToolResolver_win, QCoreApplication)
#include "tst_ToolResolver_win.moc"
