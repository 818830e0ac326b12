#include "tests/support/Processes.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

#include <cerrno>
#include <csignal>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

/// The first 32 of this thread: those that it had, of which it keeps the ones in `kept`, and gets the ones in
/// `added`.
quint32 effectiveCapabilities(quint32 kept, quint32 added = 0)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct capabilities[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &header, capabilities) != 0)
        qFatal("the rights of this thread can't be told");
    const quint32 former = capabilities[0].effective;
    capabilities[0].effective = (former & kept) | added;
    if (::syscall(SYS_capset, &header, capabilities) != 0)
        qFatal("the rights of this thread can't be changed");
    return former;
}

} // namespace

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
    : m_former(effectiveCapabilities(~0U))
{
    effectiveCapabilities(~(CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH)));
}

Unprivileged::~Unprivileged()
{
    effectiveCapabilities(~0U, m_former);
}

void bindToPermissions(QProcess &process)
{
    // A user other than root has neither of these, nor the right to drop them.
    process.setChildProcessModifier([] {
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    });
}

qsizetype openDescriptors()
{
    return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace corvane::test
