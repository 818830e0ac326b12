#include "tests/app/SymbolExporter.h"

#include <dlfcn.h>

namespace corvane::test {

QString exporterOf(const char *symbol)
{
    Dl_info info{};
    void *address = dlsym(RTLD_DEFAULT, symbol);
    return address && dladdr(address, &info) != 0 ? QString::fromLocal8Bit(info.dli_fname) : QString();
}

} // namespace corvane::test
