#include "tools/guardian/Options.h"

#include "tools/guardian/FileNames.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr auto description =
    R"(Starts CORVANE and keeps it up: starts it again after a crash, with growing pauses and
a limit, and puts a staged update in its place when CORVANE asks for it, which it does
only while nothing is on air. A version that doesn't come up is rolled back.

Without --install-dir it guards the folder "corvane" beside the one that it lies in, as
CORVANE's packages have it.

What it keeps lies beside the installation, in DIR.guardian, which nobody else may
open: its log, the former installation, what became of the last update. With
--without-updates its log is in "guardian" of the runtime directory.

CORVANE is started as the user who runs the guardian, with that user's rights. On
Windows a guardian that was started elevated refuses to work.

The feed that an update is checked against is CORVANE's own (CORVANE_UPDATE_FEED).

Exit codes: 0 CORVANE ended in order; 1 it can't be kept up; 2 wrong command line;
3 wrong place, elevated, or another guardian is at work; 4 nothing to attach to.)"_L1;

Options refused(const QString &why, ExitCode code)
{
    return {std::nullopt, why, code};
}

/// Place of the program in a package, beside the companions' folder that this program lies in.
QString packagedDirectory()
{
    const QFileInfo companions(QCoreApplication::applicationDirPath());
    return QDir::cleanPath(companions.canonicalFilePath() + "/../corvane"_L1);
}

/// False if neither the program is there nor an update that was cut off while it wasn't.
bool isInstalled(const Installation &at)
{
    return !at.directory.isEmpty() &&
           (QFileInfo::exists(at.programPath()) || QFileInfo::exists(at.journal()));
}

/// Path of the installation. In the middle of an update its place may be empty; then its parent is there.
QString placeOf(const QString &given)
{
    const QFileInfo directory(QDir::cleanPath(given));
    if (directory.exists())
        return directory.canonicalFilePath();
    const QString parent = QFileInfo(directory.absolutePath()).canonicalFilePath();
    return parent.isEmpty() ? QString() : parent + u'/' + directory.fileName();
}

} // namespace

Options readOptions(const QStringList &arguments, const QString &runtimeDirectory)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    const QCommandLineOption help({u"h"_s, u"help"_s}, u"shows this"_s);
    const QCommandLineOption install(u"install-dir"_s,
                                     u"where CORVANE is installed (default: the folder \"corvane\" beside "
                                     "the guardian's own)"_s,
                                     u"DIR"_s);
    const QCommandLineOption runtime(
        u"runtime-dir"_s, u"where CORVANE leaves its marks (default: where it does by itself)"_s, u"DIR"_s);
    const QCommandLineOption attach(u"attach"_s,
                                    u"watch a run that is there already; leave if there is none"_s);
    const QCommandLineOption patience(
        u"heartbeat-timeout"_s, u"how long a new version may take to its first heartbeat (default: 60)"_s,
        u"SECONDS"_s, u"60"_s);
    const QCommandLineOption plain(u"without-updates"_s,
                                   u"keep CORVANE up with its update check off, where its folder can't be "
                                   "written to"_s);
    parser.addOptions({help, install, runtime, attach, patience, plain});
    parser.addPositionalArgument(u"arguments"_s, u"for CORVANE, after --"_s, u"[-- arguments]"_s);

    if (!parser.parse(arguments))
        return refused(parser.errorText(), WrongUsage);
    if (parser.isSet(help))
        return {std::nullopt, parser.helpText(), EndedCleanly};
    if (parser.isSet(install) && parser.value(install).isEmpty())
        return refused(u"--install-dir is missing; see --help"_s, WrongUsage);
    bool isNumber = false;
    const int seconds = parser.value(patience).toInt(&isNumber);
    if (!isNumber || seconds < 1)
        return refused(u"--heartbeat-timeout takes a number of seconds"_s, WrongUsage);

    GuardianSettings settings;
    const QString given = parser.value(install);
    settings.installation = {placeOf(given.isEmpty() ? packagedDirectory() : given), programFileName(), {}};
    settings.runtimeDirectory =
        QFileInfo(parser.isSet(runtime) ? parser.value(runtime) : runtimeDirectory).absoluteFilePath();
    settings.arguments = parser.positionalArguments();
    settings.attachOnly = parser.isSet(attach);
    settings.trial.patience = std::chrono::seconds(seconds);
    settings.updates = !parser.isSet(plain);

    // Nothing may be written beside the installation then.
    if (!settings.updates)
        settings.installation.ownFolder = guardianFolder(settings.runtimeDirectory);
    if (!isInstalled(settings.installation)) {
        return given.isEmpty()
                   ? refused(u"--install-dir is missing, and there is no %1 in %2; see --help"_s.arg(
                                 programFileName(), packagedDirectory()),
                             WrongUsage)
                   : refused(u"there is no %1 in %2"_s.arg(programFileName(), given), WrongPlace);
    }
    return {settings, {}, EndedCleanly};
}

} // namespace corvane::guardian
