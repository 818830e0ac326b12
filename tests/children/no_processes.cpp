// Library to be loaded before others: the system has no process left for a fork().

#include <unistd.h>

#include <cerrno>

extern "C" pid_t fork()
{
    errno = EAGAIN;
    return -1;
}
