#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace corvane {

/// The publisher's key pair. It is kept as its seed; the copies in this record are wiped with it.
///
/// On disk the private key is a text of two lines, a heading and the seed in hexadecimal, and beside it, with
/// the suffix ".pub", the public key as CORVANE_UPDATE_KEY takes it.
class PublishKey
{
public:
    /// A new one, from the system's random source.
    [[nodiscard]] static PublishKey generate();
    /// The one that has this seed of 32 bytes.
    [[nodiscard]] static PublishKey fromSeed(const QByteArray &seed);
    /// The one in the file at `path`; nothing, and why in `error`, if it can't be read, isn't one, or may be
    /// read by others than its owner.
    [[nodiscard]] static std::optional<PublishKey> load(const QString &path, QString &error);

    ~PublishKey();
    PublishKey(PublishKey &&) = default;
    PublishKey &operator=(PublishKey &&) = default;
    PublishKey(const PublishKey &) = delete;
    PublishKey &operator=(const PublishKey &) = delete;

    /// Writes both files, the private one readable by its owner alone. Never overwrites: false, and why in
    /// `error`, if one of them exists or can't be made; then neither is left behind.
    [[nodiscard]] bool save(const QString &path, QString &error) const;

    [[nodiscard]] QByteArray publicKey() const { return m_publicKey; } ///< 32 bytes
    [[nodiscard]] QByteArray sign(const QByteArray &message) const;    ///< 64 bytes

private:
    PublishKey() = default;

    QByteArray m_seed;
    QByteArray m_secretKey;
    QByteArray m_publicKey;
};

} // namespace corvane
