#include "tests/support/Runner.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

namespace corvane::test {

namespace {

struct Entry
{
    std::string_view name;
    Registration::Run run;
};

std::vector<Entry> &entries()
{
    static std::vector<Entry> list;
    return list;
}

} // namespace

Registration::Registration(const char *name, Run run)
{
    entries().push_back({name, run});
}

} // namespace corvane::test

int main(int argc, char **argv)
{
    using namespace corvane::test;
    const auto chosen =
        std::ranges::find(entries(), argc > 1 ? std::string_view(argv[1]) : std::string_view(), &Entry::name);
    if (chosen == entries().end()) {
        std::fprintf(stderr, "usage: %s <class> [arguments of QtTest]\n", argv[0]);
        std::ranges::sort(entries(), {}, &Entry::name);
        for (const Entry &entry : entries())
            std::fprintf(stderr, "  %s\n", entry.name.data());
        return 2;
    }
    // An application's name is that of its program unless one is set: each class gets a name, and so
    // directories, of its own.
    QCoreApplication::setApplicationName(QString::fromUtf8(argv[1]));
    argv[1] = argv[0];
    return chosen->run(argc - 1, argv + 1);
}
