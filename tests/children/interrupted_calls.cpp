// Library to be loaded before others into a program, without its children: every other read(), write() and
// waitpid() that may wait comes back with nothing done, as after a signal that the program handles, and a
// write takes a thousand bytes at most.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace {

bool interrupts()
{
    static std::atomic<unsigned> calls = 0;
    const bool now = calls++ % 2 == 0;
    if (now)
        errno = EINTR;
    return now;
}

bool mayWait(int descriptor)
{
    return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

bool isFile(int descriptor)
{
    struct stat status
    {
    };
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

__attribute__((constructor)) void leaveChildrenAlone()
{
    unsetenv("LD_PRELOAD");
}

} // namespace

extern "C" ssize_t read(int descriptor, void *bytes, std::size_t size)
{
    if (mayWait(descriptor) && !isFile(descriptor) && interrupts())
        return -1;
    return syscall(SYS_read, descriptor, bytes, size);
}

extern "C" ssize_t write(int descriptor, const void *bytes, std::size_t size)
{
    if (!mayWait(descriptor))
        return syscall(SYS_write, descriptor, bytes, size);
    return interrupts() ? -1 : syscall(SYS_write, descriptor, bytes, std::min<std::size_t>(size, 1000));
}

extern "C" pid_t waitpid(pid_t pid, int *status, int options)
{
    return interrupts() ? -1 : static_cast<pid_t>(syscall(SYS_wait4, pid, status, options, nullptr));
}
