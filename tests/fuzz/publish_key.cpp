#include "tools/publish/PublishKey.h"

#include "tests/fuzz/Fuzz.h"

#include <QFile>

using namespace corvane;

// The publisher's private key as somebody may have edited it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString path = fuzz::scratch() + QStringLiteral("/key");
    static const QString copy = fuzz::scratch() + QStringLiteral("/copy");
    fuzz::write(path, fuzz::bytes(data, size));
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);

    QString error;
    const std::optional<PublishKey> key = PublishKey::load(path, error);
    fuzz::expect(key.has_value() == error.isEmpty(), "what isn't a key says why");
    if (!key)
        return 0;
    fuzz::expect(key->save(copy, error), "a key can be written");
    const std::optional<PublishKey> again = PublishKey::load(copy, error);
    fuzz::expect(again && again->publicKey() == key->publicKey(), "and read again");
    QFile::remove(copy);
    QFile::remove(copy + QStringLiteral(".pub"));
    return 0;
}
