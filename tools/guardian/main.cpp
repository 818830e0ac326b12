#include "app/Version.h"
#include "tools/guardian/Options.h"
#include "tools/guardian/OwnFolder.h"
#include "tools/guardian/OwnRights.h"
#include "tools/guardian/PrintableText.h"
#include "tools/guardian/Supervisor.h"
#include "update/PinnedUpdateKey.h"
#include "update/RuntimeFiles.h"

#include <QCoreApplication>
#include <QLockFile>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace corvane::guardian;

namespace {

void print(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}

ExitCode refuse(const QString &why)
{
    print(stderr, "corvane-guardian: "_L1 + printable(why) + u'\n');
    return WrongPlace;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    corvane::setApplicationIdentity();

    Options options = readOptions(QCoreApplication::arguments(), corvane::runtimeDirectory());
    if (!options.settings) {
        print(options.exitCode == EndedCleanly ? stdout : stderr, options.text);
        return options.exitCode;
    }
    GuardianSettings &settings = *options.settings;
    settings.ownVersion = QString::fromLatin1(corvane::version());
    settings.pinnedKey = QString::fromLatin1(corvane::pinnedUpdateKey()).trimmed();

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
    lock.setStaleLockTime(0); // held for as long as its holder lives
    if (!lock.tryLock())
        return refuse(u"another guardian is at work on %1"_s.arg(at.directory));

    QObject requests;
    Supervisor guardian(settings, httpsSource(corvane::updateFeed(), &requests));
    QObject::connect(&guardian, &Supervisor::logged, &guardian,
                     [](const QString &line) { print(stderr, "guardian: "_L1 + line + u'\n'); });
    QObject::connect(&guardian, &Supervisor::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    guardian.run();
    return QCoreApplication::exec();
}
