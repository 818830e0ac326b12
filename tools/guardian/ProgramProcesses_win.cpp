#include "tools/guardian/ProgramProcesses.h"

#include "update/RuntimeFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

struct CloseIt
{
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseIt>;

/// Null if the process has ended, be it that its parent still holds it, or isn't to be seen from here.
Handle openRunning(DWORD id, DWORD access = PROCESS_QUERY_LIMITED_INFORMATION)
{
    Handle process(::OpenProcess(access, FALSE, id));
    DWORD exitCode = 0;
    if (process && (::GetExitCodeProcess(process.get(), &exitCode) == 0 || exitCode != STILL_ACTIVE))
        process.reset();
    return process;
}

/// Moment of a process's start, in the system's ticks; nothing if it has ended or isn't to be seen from here.
std::optional<quint64> startOf(DWORD id)
{
    const Handle process = openRunning(id);
    FILETIME start{};
    FILETIME end{};
    FILETIME inKernel{};
    FILETIME inUser{};
    if (!process || ::GetProcessTimes(process.get(), &start, &end, &inKernel, &inUser) == 0)
        return std::nullopt;
    return (quint64{start.dwHighDateTime} << 32U) | start.dwLowDateTime;
}

QString programOf(DWORD id)
{
    const Handle process = openRunning(id);
    std::array<wchar_t, 32768> path{};
    DWORD size = static_cast<DWORD>(path.size());
    if (!process || ::QueryFullProcessImageNameW(process.get(), 0, path.data(), &size) == 0)
        return {};
    return QDir::fromNativeSeparators(QString::fromWCharArray(path.data(), static_cast<qsizetype>(size)));
}

void forEachProcess(const std::function<void(const PROCESSENTRY32W &)> &visit)
{
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return;
    const Handle closed(snapshot);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot, &entry); more != 0;
         more = ::Process32NextW(snapshot, &entry))
        visit(entry);
}

// Offsets of a process's parameters in a 64-bit system, in the block that it makes for each process and in
// the parameters themselves. Not in a header, and the same since these processes exist.
constexpr std::size_t parametersInBlock = 0x20;
constexpr std::size_t environmentInParameters = 0x80;
constexpr std::size_t environmentSizeInParameters = 0x3F0;
constexpr std::size_t largestEnvironment = 0x100000;

template <typename Value>
bool readFrom(HANDLE process, std::size_t address, Value &value)
{
    SIZE_T size = 0;
    return ::ReadProcessMemory(process, reinterpret_cast<const void *>(address), &value, sizeof value,
                               &size) != 0 &&
           size == sizeof value;
}

/// "NAME=value" one after the other; empty if it can't be read.
QString environmentOf(DWORD id)
{
    const Handle process = openRunning(id, PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    PROCESS_BASIC_INFORMATION about{};
    if (!process || ::NtQueryInformationProcess(process.get(), ProcessBasicInformation, &about, sizeof about,
                                                nullptr) != 0)
        return {};
    std::size_t parameters = 0;
    std::size_t environment = 0;
    std::size_t size = 0;
    const auto block = reinterpret_cast<std::size_t>(about.PebBaseAddress);
    if (!readFrom(process.get(), block + parametersInBlock, parameters) ||
        !readFrom(process.get(), parameters + environmentInParameters, environment) ||
        !readFrom(process.get(), parameters + environmentSizeInParameters, size) ||
        size > largestEnvironment) {
        return {};
    }
    QString text(static_cast<qsizetype>(size / sizeof(QChar)), Qt::Uninitialized);
    SIZE_T got = 0;
    if (::ReadProcessMemory(process.get(), reinterpret_cast<const void *>(environment), text.data(),
                            static_cast<SIZE_T>(text.size()) * sizeof(QChar), &got) == 0)
        return {};
    return text.first(static_cast<qsizetype>(got / sizeof(QChar)));
}

QString runtimeDirectoryOf(DWORD id)
{
    const QString environment = environmentOf(id);
    QString data;
    const QStringList variables = environment.split(QChar(0), Qt::SkipEmptyParts);
    for (const QString &variable : variables) {
        const qsizetype end = variable.indexOf(u'=', 1);
        const QString value = variable.sliced(end + 1);
        const QString name = variable.first(qMax<qsizetype>(end, 0));
        if (name.compare("CORVANE_RUNTIME_DIR"_L1, Qt::CaseInsensitive) == 0 && !value.isEmpty()) {
            const QString given = QDir::fromNativeSeparators(value);
            return QDir::isAbsolutePath(given) ? QDir::cleanPath(given) : QString();
        }
        if (name.compare("APPDATA"_L1, Qt::CaseInsensitive) == 0)
            data = QDir::fromNativeSeparators(value);
    }
    return data.isEmpty()
               ? QString()
               : QDir::cleanPath(u"%1/%2/%3/runtime"_s.arg(data, organizationName, applicationName));
}

} // namespace

QList<ProgramProcess> processesOf(const QString &path)
{
    QList<ProgramProcess> found;
    const QString program = QFileInfo(path).canonicalFilePath();
    if (program.isEmpty()) // or what has no name yet would be taken for it
        return found;
    forEachProcess([&](const PROCESSENTRY32W &entry) {
        // The name first: opening every process of the machine isn't for free.
        if (program.endsWith(QString::fromWCharArray(entry.szExeFile), Qt::CaseInsensitive) &&
            programOf(entry.th32ProcessID).compare(program, Qt::CaseInsensitive) == 0) {
            found << ProgramProcess{static_cast<qint64>(entry.th32ProcessID),
                                    runtimeDirectoryOf(entry.th32ProcessID)};
        }
    });
    return found;
}

QList<qint64> processesWithin(const QString &folder)
{
    QList<qint64> found;
    const QString within = QFileInfo(folder).canonicalFilePath() + u'/';
    if (within.size() == 1)
        return found;
    forEachProcess([&](const PROCESSENTRY32W &entry) {
        if (programOf(entry.th32ProcessID).startsWith(within, Qt::CaseInsensitive))
            found << static_cast<qint64>(entry.th32ProcessID);
    });
    return found;
}

QStringList childrenOf(qint64 id)
{
    QList<ListedProcess> processes;
    forEachProcess([&](const PROCESSENTRY32W &entry) {
        const ListedProcess process{static_cast<qint64>(entry.th32ProcessID),
                                    static_cast<qint64>(entry.th32ParentProcessID),
                                    0,
                                    QString::fromWCharArray(entry.szExeFile),
                                    {}};
        const bool isSystems = process.name.compare("conhost.exe"_L1, Qt::CaseInsensitive) == 0 ||
                               process.name.compare("WerFault.exe"_L1, Qt::CaseInsensitive) == 0;
        // Opening every process of the machine isn't for free.
        if (isSystems || (process.id != id && process.parent != id))
            return;
        if (const std::optional<quint64> start = startOf(entry.th32ProcessID)) {
            processes << process;
            processes.last().start = *start;
            processes.last().program = programOf(entry.th32ProcessID);
        }
    });
    return childrenAmong(processes, id);
}

void endProcess(qint64 id)
{
    const Handle process(::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(id)));
    if (process)
        ::TerminateProcess(process.get(), 1);
}

// The program's own children get the console that it has, so that none of them opens one either.
void startWithoutConsole(QProcess &process)
{
    process.setCreateProcessArgumentsModifier(
        [](QProcess::CreateProcessArguments *arguments) { arguments->flags |= CREATE_NO_WINDOW; });
}

} // namespace corvane::guardian
