#include "update/DigestLibrary.h"

#include <QLibrary>
#include <QString>

using namespace Qt::StringLiterals;

namespace corvane {

namespace {

template <typename Function>
bool resolve(QLibrary &library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(library.resolve(name));
    return function != nullptr;
}

bool load(DigestLibrary &loaded)
{
    QLibrary crypto(u"crypto"_s, 3);
    return crypto.load() && resolve(crypto, "EVP_MD_CTX_new", loaded.newContext) &&
           resolve(crypto, "EVP_MD_CTX_free", loaded.freeContext) &&
           resolve(crypto, "EVP_sha256", loaded.sha256) &&
           resolve(crypto, "EVP_DigestInit_ex", loaded.init) &&
           resolve(crypto, "EVP_DigestUpdate", loaded.update) &&
           resolve(crypto, "EVP_DigestFinal_ex", loaded.final);
}

} // namespace

const DigestLibrary *digestLibrary()
{
    static DigestLibrary library;
    static const bool isThere = load(library);
    return isThere ? &library : nullptr;
}

} // namespace corvane
