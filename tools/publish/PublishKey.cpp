#include "tools/publish/PublishKey.h"

#include "tools/guardian/WriteAll.h"
#include "tools/publish/FilePrivacy.h"
#include "update/UpdateSignature.h"

#include <QFile>
#include <QRandomGenerator>

#include <monocypher-ed25519.h>

#include <cstddef>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace corvane {

namespace {

constexpr QByteArrayView heading("corvane private key v1\n");
constexpr qsizetype seedSize = 32;
constexpr qsizetype secretKeySize = 64;
constexpr qint64 longestFile = 1024; ///< that is looked into for a key

std::uint8_t *bytes(QByteArray &array)
{
    return reinterpret_cast<std::uint8_t *>(array.data());
}

const std::uint8_t *bytes(const QByteArray &array)
{
    return reinterpret_cast<const std::uint8_t *>(array.constData());
}

void wipe(QByteArray &secret)
{
    if (!secret.isEmpty())
        crypto_wipe(secret.data(), static_cast<std::size_t>(secret.size()));
}

/// Created with its final permissions, so that it is never open to others for a moment.
bool writeNew(const QString &path, const QByteArray &content, QFile::Permissions permissions, QString &error)
{
    QFile file(path);
    // Without a buffer, whose rest would keep remove() from it on a full disk.
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered, permissions)) {
        error = QFile::exists(path) ? u"%1 exists, and keys aren't overwritten"_s.arg(path)
                                    : u"can't make %1: %2"_s.arg(path, file.errorString());
        return false;
    }
    if (const QString problem = guardian::writeAll(file, content); !problem.isEmpty()) {
        error = u"can't write %1: %2"_s.arg(path, problem);
        file.remove();
        return false;
    }
    return true;
}

} // namespace

PublishKey PublishKey::generate()
{
    QByteArray seed(seedSize, Qt::Uninitialized);
    QRandomGenerator::system()->generate(seed.begin(), seed.end());
    PublishKey key = fromSeed(seed);
    wipe(seed);
    return key;
}

PublishKey PublishKey::fromSeed(const QByteArray &seed)
{
    Q_ASSERT(seed.size() == seedSize);
    PublishKey key;
    key.m_seed = QByteArray(seed.constData(), seed.size());
    key.m_secretKey.resize(secretKeySize);
    key.m_publicKey.resize(updateKeySize);
    QByteArray wiped(seed.constData(), seed.size());
    crypto_ed25519_key_pair(bytes(key.m_secretKey), bytes(key.m_publicKey), bytes(wiped));
    return key;
}

std::optional<PublishKey> PublishKey::load(const QString &path, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = u"can't read the key %1: %2"_s.arg(path, file.errorString());
        return std::nullopt;
    }
    if (isOpenToOthers(file)) {
        error =
            u"the key %1 is open to others than its owner: take their rights away, or make a new one"_s.arg(
                path);
        return std::nullopt;
    }
    QByteArray text = file.read(longestFile);
    QByteArray digits = text.sliced(qMin(heading.size(), text.size())).trimmed();
    QByteArray seed = QByteArray::fromHex(digits);
    std::optional<PublishKey> key;
    if (text.startsWith(heading) && digits.size() == 2 * seedSize && seed.toHex() == digits.toLower())
        key = fromSeed(seed);
    else
        error = u"%1 isn't a private key of corvane-publish"_s.arg(path);
    wipe(text);
    wipe(digits);
    wipe(seed);
    if (key && isWeakUpdateKey(key->publicKey())) {
        error = u"the key %1 is a weak one, under which everybody can sign"_s.arg(path);
        return std::nullopt;
    }
    return key;
}

PublishKey::~PublishKey()
{
    wipe(m_seed);
    wipe(m_secretKey);
}

bool PublishKey::save(const QString &path, QString &error) const
{
    const QString publicPath = path + ".pub"_L1;
    if (QFile::exists(publicPath)) {
        error = u"%1 exists, and keys aren't overwritten"_s.arg(publicPath);
        return false;
    }
    QByteArray text = heading.toByteArray() + m_seed.toHex() + '\n';
    const bool saved = writeNew(path, text, QFile::ReadOwner | QFile::WriteOwner, error);
    wipe(text);
    if (!saved)
        return false;
    if (writeNew(publicPath, m_publicKey.toHex() + '\n',
                 QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther, error))
        return true;
    // Half a key would be in the way of the next attempt.
    QFile::remove(path);
    return false;
}

QByteArray PublishKey::sign(const QByteArray &message) const
{
    QByteArray signature(updateSignatureSize, '\0');
    crypto_ed25519_sign(bytes(signature), bytes(m_secretKey), bytes(message),
                        static_cast<std::size_t>(message.size()));
    return signature;
}

} // namespace corvane
