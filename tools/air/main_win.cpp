// Hands the call on to the next ffmpeg.exe of PATH as a child in a job object: with the list of a
// transmission by staying between, with any other by giving it the standard streams and leaving with its exit
// code.

#include "tools/air/Child_win.h"
#include "tools/air/CorvaneList.h"
#include "tools/air/NextFfmpeg.h"
#include "tools/air/Supervise.h"
#include "tools/air/Text_win.h"

#include <windows.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace corvane::air;

constexpr int notFound = 127; // as a shell says it

void say(const std::string &line)
{
    writeAll(GetStdHandle(STD_ERROR_HANDLE), "[air] " + line + '\n');
}

int cannotBeRun(const std::string &ffmpeg)
{
    say(ffmpeg + ": " + systemWords(GetLastError()));
    return notFound;
}

/// File beside this program that switches recording on.
std::string recordings()
{
    const std::wstring path = ownPath();
    return narrow(path.substr(0, path.rfind(L'\\') + 1)) + "recordings";
}

} // namespace

int wmain(int argc, wchar_t *argv[])
{
    const std::string ffmpeg = nextFfmpeg();
    if (ffmpeg.empty()) {
        say("nenhum outro ffmpeg no PATH");
        return notFound;
    }

    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.push_back(narrow(argv[i]));
    if (const auto list = readCorvaneList(arguments)) {
        const auto code = supervise(ffmpeg, *list, std::move(arguments), recordings());
        std::_Exit(code ? *code : cannotBeRun(ffmpeg));
    }
    Child child;
    if (!child.start(ffmpeg, arguments,
                     {GetStdHandle(STD_INPUT_HANDLE), GetStdHandle(STD_OUTPUT_HANDLE),
                      GetStdHandle(STD_ERROR_HANDLE)}))
        return cannotBeRun(ffmpeg);
    return child.wait();
}
