#include "tests/support/Processes.h"

#include <QDir>
#include <QFile>
#include <QString>

#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace corvane::test {

using namespace Qt::StringLiterals;

bool processExists(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

int killedExitCode()
{
    return SIGKILL;
}

int crashedExitCode()
{
    return SIGSEGV;
}

bool startsAtOnce()
{
    return false;
}

QString pathForCopies(const QString &directory)
{
    return directory;
}

QByteArray ownWords(const QByteArray &standardError)
{
    return standardError;
}

void suspendProcess(qint64 pid)
{
    ::kill(static_cast<pid_t>(pid), SIGSTOP);
}

bool resetsAreTold()
{
    return true;
}

bool sendsWithoutLimit()
{
    return false;
}

bool signalsCanBeSent()
{
    return true;
}

int seenExitCode(int code)
{
    return code & 0xff;
}

void sendSignal(qint64 pid, int signal)
{
    ::kill(static_cast<pid_t>(pid), signal);
}

void killProcess(qint64 pid)
{
    ::kill(static_cast<pid_t>(pid), SIGKILL);
}

QList<qint64> childProcesses(qint64 parent)
{
    parent = parent == 0 ? ::getpid() : parent;
    QList<qint64> children;
    for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isNumber = false;
        const qint64 pid = entry.toLongLong(&isNumber);
        QFile stat(u"/proc/%1/stat"_s.arg(entry));
        if (!isNumber || !stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (name) state parent …"; the name may hold anything, so count from its end.
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.sliced(text.lastIndexOf(')') + 1).simplified().split(' ');
        if (fields.value(1).toLongLong() == parent)
            children << pid;
    }
    return children;
}

QStringList processCommand(qint64 pid)
{
    QFile file(u"/proc/%1/cmdline"_s.arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Each argument is ended by a zero byte.
    QStringList command = QString::fromUtf8(file.readAll()).split(u'\0');
    command.removeLast();
    return command;
}

Unprivileged::Unprivileged()
{
    constexpr uid_t nobody = 65534;
    if (::getuid() == 0 && ::seteuid(nobody) != 0)
        qFatal("nobody's rights can't be had");
}

Unprivileged::~Unprivileged()
{
    if (::seteuid(::getuid()) != 0)
        qFatal("the rights of before are lost");
}

qsizetype openDescriptors()
{
    return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace corvane::test
