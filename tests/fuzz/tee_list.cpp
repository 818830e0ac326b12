#include "tools/air/TeeRewrite.h"

#include "tests/fuzz/Fuzz.h"

#include <algorithm>

using namespace corvane;

// An argument list, one argument a line, as the companion is given it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::vector<std::string> list;
    const QList<QByteArray> lines = fuzz::bytes(data, size).split('\n');
    for (const QByteArray &line : lines)
        list.push_back(line.toStdString());

    const std::vector<std::string> rewritten = air::rewriteTee(list);
    const std::vector<std::string> format{"-f", "tee"};
    if (std::search(list.begin(), list.end(), format.begin(), format.end()) == list.end())
        fuzz::expect(rewritten == list, "a list without the tee muxer stays as it is");
    fuzz::expect(rewritten.size() >= list.size(), "no argument is lost");
    return 0;
}
