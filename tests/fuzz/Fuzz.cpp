#include "tests/fuzz/Fuzz.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace corvane::fuzz {

using namespace Qt::StringLiterals;

void expect(bool holds, const char *what)
{
    if (holds)
        return;
    std::fprintf(stderr, "fuzz: broken: %s\n", what);
    std::abort();
}

QCoreApplication &application()
{
    static int count = 1;
    static char name[] = "fuzz";
    static char *arguments[] = {name, nullptr};
    static QCoreApplication application(count, arguments);
    return application;
}

QString scratch()
{
    static const QTemporaryDir folder(
        (QFileInfo(u"/dev/shm"_s).isWritable() ? u"/dev/shm"_s : QDir::tempPath()) +
        u"/corvane-fuzz-XXXXXX"_s);
    if (!folder.isValid())
        qFatal("no folder for the fuzz target's files");
    return folder.path();
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        qFatal("the fuzz target can't write its file");
}

} // namespace corvane::fuzz
