#include "app/Version.h"
#include "tools/guardian/Front.h"
#include "tools/guardian/Options.h"
#include "tools/guardian/OwnFolder.h"
#include "tools/guardian/OwnRights.h"
#include "tools/guardian/Supervisor.h"
#include "update/PinnedUpdateKey.h"
#include "update/RuntimeFiles.h"

#include <QCoreApplication>
#include <QLockFile>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

namespace {

ExitCode refuse(const QString &why)
{
    front::refusal(WrongPlace, why);
    return WrongPlace;
}

bool hold(QLockFile &lock)
{
    lock.setStaleLockTime(0); // held for as long as its holder lives
    return lock.tryLock();
}

int guard(const QCoreApplication &app, const GuardianSettings &settings)
{
    if (isElevated()) {
        return refuse(
            u"it was started with an administrator's rights, which CORVANE would get from it: start it "
            "without “Run as administrator”"_s);
    }
    const Installation &at = settings.installation;
    if (const QString problem =
            placeProblem(at, QCoreApplication::applicationDirPath(), settings.runtimeDirectory);
        !problem.isEmpty()) {
        return refuse(problem);
    }
    if (const QString problem = makeOwnFolder(at.own()); !problem.isEmpty()) {
        return refuse(u"%1, the folder where the guardian keeps what it needs, can't be used: %2%3"_s.arg(
            at.own(), problem,
            settings.updates ? u". Without updates it isn't needed: --without-updates"_s : QString()));
    }
    QLockFile lock(at.lock());
    if (!hold(lock)) {
        front::alreadyGuarded(at, at.directory);
        return WrongPlace;
    }
    // Another guardian, on this installation without updates or on another one, would take this one's runs
    // for its own.
    const QString runsFolder = guardianFolder(settings.runtimeDirectory);
    QLockFile runsLock(runsFolder + "/lock"_L1);
    if (runsFolder != at.own()) {
        if (const QString problem = makeOwnFolder(runsFolder); !problem.isEmpty())
            return refuse(
                u"%1, the guardian's folder beside the marks, can't be used: %2"_s.arg(runsFolder, problem));
        if (!hold(runsLock)) {
            front::alreadyGuarded(at, settings.runtimeDirectory);
            return WrongPlace;
        }
    }

    QObject requests;
    QString lastLine;
    Supervisor guardian(settings, httpsSource(corvane::updateFeed(), &requests));
    QObject::connect(&guardian, &Supervisor::logged, &guardian, [&lastLine](const QString &line) {
        lastLine = line;
        front::line(line);
    });
    QObject::connect(&guardian, &Supervisor::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    guardian.run();
    const int code = QCoreApplication::exec();
    runsLock.unlock();
    lock.unlock(); // whoever reads the following words may start another one
    front::end(static_cast<ExitCode>(code), lastLine, at.log());
    return code;
}

} // namespace

int main(int argc, char *argv[])
{
    front::prepare();
    const QCoreApplication app(argc, argv);
    corvane::setApplicationIdentity();

    Options options = readOptions(QCoreApplication::arguments(), corvane::runtimeDirectory());
    if (!options.settings) {
        if (options.exitCode == EndedCleanly)
            front::help(options.text);
        else
            front::refusal(options.exitCode, options.text);
        return options.exitCode;
    }
    options.settings->ownVersion = QString::fromLatin1(corvane::version());
    options.settings->pinnedKey = QString::fromLatin1(corvane::pinnedUpdateKey()).trimmed();
    return guard(app, *options.settings);
}
