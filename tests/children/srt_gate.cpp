// An SRT listener that lets in only callers with the right stream id (or one of several, a line each), and
// with the right passphrase if one is given: srt_gate <port> <stream id> <passphrase or nothing>. What it
// receives goes to standard output; each caller leaves a line on standard error: "rejected <stream id>" or
// "accepted <stream id>, latency <ms>".

#include <srt/srt.h>

#include <netinet/in.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

/// Callback of libsrt: 0 lets the caller in.
int judge(void *wanted, SRTSOCKET /*caller*/, int /*version*/, const sockaddr * /*peer*/,
          const char *streamId)
{
    const auto *ids = static_cast<const std::string *>(wanted);
    if (('\n' + *ids + '\n').find('\n' + std::string(streamId) + '\n') != std::string::npos)
        return 0;
    std::fprintf(stderr, "rejected %s\n", streamId);
    return -1;
}

int fail(const char *what)
{
    std::fprintf(stderr, "srt_gate: %s: %s\n", what, srt_getlasterror_str());
    return 1;
}

void receive(SRTSOCKET caller)
{
    int latency = 0;
    int size = sizeof latency;
    srt_getsockflag(caller, SRTO_RCVLATENCY, &latency, &size);
    char streamId[513] = {};
    size = sizeof streamId - 1;
    srt_getsockflag(caller, SRTO_STREAMID, streamId, &size);
    std::fprintf(stderr, "accepted %s, latency %d\n", streamId, latency);

    std::vector<char> buffer(1500);
    for (int count = 0; (count = srt_recv(caller, buffer.data(), static_cast<int>(buffer.size()))) > 0;) {
        std::fwrite(buffer.data(), 1, static_cast<std::size_t>(count), stdout);
        std::fflush(stdout);
    }
    srt_close(caller);
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fputs("usage: srt_gate <port> <stream id> <passphrase>\n", stderr);
        return 2;
    }
    std::signal(SIGTERM, [](int) { std::_Exit(0); });
    std::string streamId = argv[2];
    const std::string passphrase = argv[3];

    srt_startup();
    const SRTSOCKET listener = srt_create_socket();
    if (!passphrase.empty() && srt_setsockflag(listener, SRTO_PASSPHRASE, passphrase.data(),
                                               static_cast<int>(passphrase.size())) == SRT_ERROR)
        return fail("passphrase");
    srt_listen_callback(listener, judge, &streamId);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (srt_bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == SRT_ERROR ||
        srt_listen(listener, 1) == SRT_ERROR)
        return fail("port");
    for (;;) {
        const SRTSOCKET caller = srt_accept(listener, nullptr, nullptr);
        if (caller == SRT_INVALID_SOCK)
            return fail("accept");
        receive(caller);
    }
}
