#include "engine/host/ToolResolver.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/ToolPath.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString tool = u"corvane-test-tool"_s;

/// A program in `<root>/bundle/bin`, with directories beside it as in a bundle and one directory as `PATH`.
class Tree
{
public:
    Tree()
    {
        for (const char *directory : {"bundle/bin", "bundle/Resources/bin", "bundle/Frameworks", "path"})
            QDir(root()).mkpath(QString::fromLatin1(directory));
        m_program = root() + u"/bundle/bin/"_s + QFileInfo(QStringLiteral(CORVANE_TOOL_PROBE)).fileName();
        QFile::copy(QStringLiteral(CORVANE_TOOL_PROBE), m_program);
    }

    [[nodiscard]] QString root() const { return QFileInfo(m_dir.path()).canonicalFilePath(); }

    /// A file below the root, or a directory if `path` ends in "/"; executable if it ends in "*".
    void make(QString path) const
    {
        const bool executable = path.endsWith(u'*');
        if (executable)
            path.chop(1);
        const QString full = root() + u'/' + path;
        if (path.endsWith(u'/')) {
            QDir().mkpath(full);
            return;
        }
        QFile file(full);
        if (!file.open(QIODevice::WriteOnly))
            qFatal("cannot write %s", qPrintable(full));
        file.write("#!/bin/sh\n");
        if (executable)
            file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    }

    /// Result of the search by the program, with the root left out.
    [[nodiscard]] QString find(const QString &name) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, pathForCopies(root() + u"/path"_s));
        QProcess program;
        program.setProcessEnvironment(environment);
        program.setWorkingDirectory(root());
        program.start(m_program, {name});
        if (!program.waitForFinished() || program.exitCode() != 0)
            return u"(no answer)"_s;
        QString found = QFile::decodeName(program.readAllStandardOutput());
        return found.startsWith(root() + u'/') ? found.sliced(root().size() + 1) : found;
    }

private:
    QTemporaryDir m_dir;
    QString m_program;
};

} // namespace

class tst_ToolResolver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listsTheCandidatesInOrder_data();
    void listsTheCandidatesInOrder();
    void takesTheFirstThatExists_data();
    void takesTheFirstThatExists();
    void looksBesideThisProgram();
    void findsNothingWithoutPath();
};

void tst_ToolResolver::listsTheCandidatesInOrder_data()
{
    QTest::addColumn<QString>("appDir");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("candidates");

    QTest::newRow("a bundle") << u"/Apps/C.app/Contents/MacOS"_s << u"ffmpeg"_s
                              << QStringList{u"/Apps/C.app/Contents/MacOS/ffmpeg"_s,
                                             u"/Apps/C.app/Contents/MacOS/../Resources/bin/ffmpeg"_s,
                                             u"/Apps/C.app/Contents/MacOS/../Frameworks/ffmpeg"_s,
                                             u"/opt/homebrew/bin/ffmpeg"_s,
                                             u"/usr/local/bin/ffmpeg"_s,
                                             u"/opt/homebrew/opt/srt/bin/ffmpeg"_s};
    QTest::newRow("a drive letter, and no suffix")
        << u"C:/Program Files/C"_s << u"srt-live-transmit"_s
        << QStringList{u"C:/Program Files/C/srt-live-transmit"_s,
                       u"C:/Program Files/C/../Resources/bin/srt-live-transmit"_s,
                       u"C:/Program Files/C/../Frameworks/srt-live-transmit"_s,
                       u"/opt/homebrew/bin/srt-live-transmit"_s,
                       u"/usr/local/bin/srt-live-transmit"_s,
                       u"/opt/homebrew/opt/srt/bin/srt-live-transmit"_s};
    QTest::newRow("paths are not cleaned") << u"/a/./b//c/.."_s << u"srtla_send"_s
                                           << QStringList{u"/a/./b//c/../srtla_send"_s,
                                                          u"/a/./b//c/../../Resources/bin/srtla_send"_s,
                                                          u"/a/./b//c/../../Frameworks/srtla_send"_s,
                                                          u"/opt/homebrew/bin/srtla_send"_s,
                                                          u"/usr/local/bin/srtla_send"_s,
                                                          u"/opt/homebrew/opt/srt/bin/srtla_send"_s};
}

void tst_ToolResolver::listsTheCandidatesInOrder()
{
    QFETCH(QString, appDir);
    QFETCH(QString, name);
    QTEST(toolCandidates(appDir, name), "candidates");
}

void tst_ToolResolver::takesTheFirstThatExists_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("found");

    const QString beside = u"bundle/bin/corvane-test-tool"_s;
    const QString resources = u"bundle/Resources/bin/corvane-test-tool"_s;
    const QString frameworks = u"bundle/Frameworks/corvane-test-tool"_s;
    const QString resourcesFound = u"bundle/bin/../Resources/bin/corvane-test-tool"_s;
    const QString frameworksFound = u"bundle/bin/../Frameworks/corvane-test-tool"_s;
#ifdef Q_OS_WIN
    const QString onPath = u"path/corvane-test-tool.exe"_s;
#else
    const QString onPath = u"path/corvane-test-tool*"_s;
#endif
    const QString onPathFound = QString(onPath).remove(u'*');

    QTest::newRow("nowhere") << QStringList{} << u""_s;
    QTest::newRow("beside the program") << QStringList{beside} << beside;
    QTest::newRow("in Resources, path as it stands") << QStringList{resources} << resourcesFound;
    QTest::newRow("in Frameworks, path as it stands") << QStringList{frameworks} << frameworksFound;
    QTest::newRow("in PATH") << QStringList{onPath} << onPathFound;
    QTest::newRow("everywhere: beside the program")
        << QStringList{beside, resources, frameworks, onPath} << beside;
    QTest::newRow("Resources before Frameworks")
        << QStringList{resources, frameworks, onPath} << resourcesFound;
    QTest::newRow("Frameworks before PATH") << QStringList{frameworks, onPath} << frameworksFound;
    QTest::newRow("a candidate need not be executable") << QStringList{beside, onPath} << beside;
    QTest::newRow("a directory exists too")
        << QStringList{u"bundle/bin/corvane-test-tool/"_s, onPath} << beside;
    QTest::newRow("a directory in PATH is none") << QStringList{u"path/corvane-test-tool/"_s} << u""_s;
    QTest::newRow("no suffix is added to a candidate")
        << QStringList{u"bundle/bin/corvane-test-tool.exe*"_s, u"bundle/Frameworks/corvane-test-tool.exe*"_s}
        << u""_s;
    QTest::newRow("the name is the whole name")
        << QStringList{u"bundle/bin/corvane-test-tool2"_s, u"bundle/bin/Xcorvane-test-tool"_s} << u""_s;
    QTest::newRow("not in the working directory") << QStringList{u"corvane-test-tool*"_s} << u""_s;
#ifndef Q_OS_WIN
    QTest::newRow("in PATH, not executable") << QStringList{u"path/corvane-test-tool"_s} << u""_s;
    QTest::newRow("case matters") << QStringList{u"bundle/bin/Corvane-Test-Tool"_s} << u""_s;
#endif
}

void tst_ToolResolver::takesTheFirstThatExists()
{
    QFETCH(QStringList, files);

    const Tree tree;
    for (const QString &file : files)
        tree.make(file);
    QTEST(tree.find(tool), "found");
}

void tst_ToolResolver::looksBesideThisProgram()
{
    const ToolPath path;
    const QString self = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    QCOMPARE(resolveTool(self), QCoreApplication::applicationDirPath() + u'/' + self);
}

void tst_ToolResolver::findsNothingWithoutPath()
{
    const ToolPath path;
    QCOMPARE(resolveTool(tool), QString());
}

CORVANE_TEST(tst_ToolResolver, QCoreApplication)
#include "tst_ToolResolver.moc"
