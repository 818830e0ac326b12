#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>
#include <optional>

class QIODevice;

namespace corvane {

/// SHA-256 of bytes that come in pieces.
///
/// A package is hashed on the thread of the window, and the window stands still meanwhile. OpenSSL's
/// libcrypto is several times as fast as Qt's own code: it is used where the system has it, and loaded when
/// the first digest is computed, so that a start doesn't pay for it.
class Sha256
{
public:
    enum class Code { Fastest, Qt };

    explicit Sha256(Code code = Code::Fastest);
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void add(QByteArrayView piece);
    /// Digest of all that was added, 32 bytes, or empty if the library has failed. To be called once, last.
    [[nodiscard]] QByteArray result();

    [[nodiscard]] bool isQt() const; ///< computed by Qt's own code

private:
    class Computation;
    class QtComputation;
    class LibraryComputation;
    std::unique_ptr<Computation> m_computation;
};

/// The SHA-256 of what is left to read of `device`, 32 bytes; nothing if reading fails.
[[nodiscard]] std::optional<QByteArray> sha256Of(QIODevice &device,
                                                 Sha256::Code code = Sha256::Code::Fastest);

} // namespace corvane
