#include "tools/guardian/Guardian.h"
#include "tools/guardian/Options.h"
#include "update/PinnedUpdateKey.h"
#include "update/RuntimeFiles.h"

#include <QCoreApplication>
#include <QDir>
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
    print(stderr, "corvane-guardian: "_L1 + why + u'\n');
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
    settings.pinnedKey = QString::fromLatin1(corvane::pinnedUpdateKey()).trimmed();

    const Installation &at = settings.installation;
    if (const QString problem =
            placeProblem(at, QCoreApplication::applicationDirPath(), settings.runtimeDirectory);
        !problem.isEmpty()) {
        return refuse(problem);
    }
    if (!QDir().mkpath(at.own()))
        return refuse(
            u"the folder %1, where the guardian keeps what it needs, can't be made"_s.arg(at.own()));
    QLockFile lock(at.lock());
    lock.setStaleLockTime(0); // held for as long as its holder lives
    if (!lock.tryLock())
        return refuse(u"another guardian is at work on %1"_s.arg(at.directory));

    QObject requests;
    Guardian guardian(settings, httpsSource(corvane::updateFeed(), &requests));
    QObject::connect(&guardian, &Guardian::logged, &guardian,
                     [](const QString &line) { print(stderr, "guardian: "_L1 + line + u'\n'); });
    QObject::connect(&guardian, &Guardian::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    guardian.run();
    return QCoreApplication::exec();
}
