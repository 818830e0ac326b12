// Reads a frame pipe from outside, in ffmpeg's place:
//
//   frame_reader PIPE [BYTES]
//
// Says "open" on standard error as soon as it has the pipe, hands what comes on to standard output, and
// leaves with 0 when the pipe ends or, if BYTES are given, after that many; with 1 if there is no such pipe.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <io.h>

int main(int argc, char *argv[])
{
    if (argc < 2)
        return 2;
    std::FILE *const pipe = std::fopen(argv[1], "rb");
    if (!pipe)
        return 1;
    std::fputs("open", stderr);
    std::fflush(stderr);
    _setmode(_fileno(stdout), _O_BINARY);
    std::setvbuf(pipe, nullptr, _IONBF, 0);

    unsigned long long left = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : ~0ULL;
    std::vector<char> bytes(65536);
    while (left > 0) {
        const std::size_t wanted = static_cast<std::size_t>(std::min<unsigned long long>(left, bytes.size()));
        const std::size_t count = std::fread(bytes.data(), 1, wanted, pipe);
        std::fwrite(bytes.data(), 1, count, stdout);
        if (count < wanted)
            break;
        left -= count;
    }
    return 0;
}
