// Library to be loaded before others: as often as the variable CONTESTED says, another program creates a file
// called
// *.mkv just before this one does.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <string_view>

extern "C" int open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    const auto openFile = [&] { return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode)); };
    static int left = std::atoi(std::getenv("CONTESTED"));
    if (std::string_view(path).ends_with(".mkv") && left > 0) {
        --left;
        close(openFile());
    }
    return openFile();
}
