#include "update/UpdateSignature.h"

#include "tests/fuzz/Fuzz.h"
#include "tools/publish/PublishKey.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace corvane;

namespace {

QByteArray taken(FuzzedDataProvider &input, qsizetype size)
{
    const std::string text = input.ConsumeBytesAsString(static_cast<std::size_t>(size));
    return QByteArray::fromStdString(text);
}

} // namespace

// Foreign keys and signatures, and a true signature that has been tampered with.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const PublishKey key = PublishKey::fromSeed(QByteArray(32, '\7'));

    FuzzedDataProvider input(data, size);
    const QByteArray foreignKey = taken(input, updateKeySize);
    const QByteArray foreignSignature = taken(input, updateSignatureSize);
    const std::size_t at = input.ConsumeIntegralInRange<std::size_t>(0, updateSignatureSize - 1);
    const char change = input.ConsumeIntegral<char>();
    const QByteArray message = QByteArray::fromStdString(input.ConsumeRemainingBytesAsString());

    const bool weak = isWeakUpdateKey(foreignKey);
    if (checkUpdateSignature(foreignSignature, foreignKey, message))
        fuzz::expect(weak, "nobody signs without the private key");

    QByteArray signature = key.sign(message);
    fuzz::expect(checkUpdateSignature(signature, key.publicKey(), message), "a true signature holds");
    fuzz::expect(!checkUpdateSignature(signature, key.publicKey(), message + '\n'),
                 "and for its message alone");
    if (change) {
        signature[static_cast<qsizetype>(at)] =
            static_cast<char>(signature[static_cast<qsizetype>(at)] ^ change);
        fuzz::expect(!checkUpdateSignature(signature, key.publicKey(), message), "no byte of it may change");
    }
    return 0;
}
