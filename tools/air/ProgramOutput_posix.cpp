#include "tools/air/ProgramOutput.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace corvane::air {

std::string programOutput(const std::vector<std::string> &call)
{
    std::vector<char *> vector;
    vector.reserve(call.size() + 1);
    for (const std::string &argument : call)
        vector.push_back(const_cast<char *>(argument.c_str()));
    vector.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const bool runs = posix_spawn(&pid, vector.front(), &actions, nullptr, vector.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);

    std::string output;
    std::array<char, 4096> bytes{};
    for (ssize_t size = 0; (size = read(ends[0], bytes.data(), bytes.size())) > 0;)
        output.append(bytes.data(), static_cast<std::size_t>(size));
    close(ends[0]);
    if (runs)
        waitpid(pid, nullptr, 0);
    return output;
}

} // namespace corvane::air
