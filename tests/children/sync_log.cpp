// Library to be loaded before others: each fdatasync() appends the size of its file, as one line, to the file
// that the variable SYNC_LOG names.

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

extern "C" int fdatasync(int descriptor)
{
    struct stat status
    {
    };
    fstat(descriptor, &status);
    std::ofstream(std::getenv("SYNC_LOG"), std::ios::app) << status.st_size << std::endl;
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}
