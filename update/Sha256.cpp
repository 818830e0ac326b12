#include "update/Sha256.h"

#include "update/DigestLibrary.h"

#include <QCryptographicHash>
#include <QIODevice>

#include <cstddef>

namespace corvane {

namespace {

constexpr qsizetype digestSize = 32;
constexpr qsizetype pieceSize = 0x20000;

} // namespace

class Sha256::Computation
{
public:
    Computation() = default;
    virtual ~Computation() = default;
    Computation(const Computation &) = delete;
    Computation &operator=(const Computation &) = delete;

    virtual void add(QByteArrayView piece) = 0;
    virtual QByteArray result() = 0;
};

class Sha256::QtComputation : public Sha256::Computation
{
public:
    void add(QByteArrayView piece) override { m_hash.addData(piece); }
    QByteArray result() override { return m_hash.result(); }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};

class Sha256::LibraryComputation : public Sha256::Computation
{
public:
    /// Null if the library is missing or doesn't begin, as one may that is restricted to other algorithms.
    static std::unique_ptr<Computation> begin()
    {
        const DigestLibrary *library = digestLibrary();
        if (!library)
            return nullptr;
        auto computation = std::make_unique<LibraryComputation>(*library);
        return computation->m_right ? std::move(computation) : nullptr;
    }

    explicit LibraryComputation(const DigestLibrary &library)
        : m_library(library)
        , m_context(library.newContext(), library.freeContext)
        , m_right(m_context && library.init(m_context.get(), library.sha256(), nullptr) == 1)
    {
    }

    void add(QByteArrayView piece) override
    {
        m_right = m_right && m_library.update(m_context.get(), piece.data(),
                                              static_cast<std::size_t>(piece.size())) == 1;
    }

    QByteArray result() override
    {
        QByteArray digest(digestSize, Qt::Uninitialized);
        auto *bytes = reinterpret_cast<unsigned char *>(digest.data());
        m_right = m_right && m_library.final(m_context.get(), bytes, nullptr) == 1;
        return m_right ? digest : QByteArray();
    }

private:
    const DigestLibrary &m_library;
    std::unique_ptr<void, void (*)(void *)> m_context;
    bool m_right;
};

Sha256::Sha256(Code code)
    : m_computation(code == Code::Fastest ? LibraryComputation::begin() : nullptr)
{
    if (!m_computation)
        m_computation = std::make_unique<QtComputation>();
}

Sha256::~Sha256() = default;

void Sha256::add(QByteArrayView piece)
{
    m_computation->add(piece);
}

QByteArray Sha256::result()
{
    return m_computation->result();
}

bool Sha256::isQt() const
{
    return dynamic_cast<const QtComputation *>(m_computation.get()) != nullptr;
}

std::optional<QByteArray> sha256Of(QIODevice &device, Sha256::Code code)
{
    // Not by QCryptographicHash::addData(&device), which takes a device that fails for one that has ended.
    Sha256 hash(code);
    QByteArray piece(pieceSize, Qt::Uninitialized);
    qint64 size = 0;
    while ((size = device.read(piece.data(), piece.size())) > 0)
        hash.add(QByteArrayView(piece).first(size));
    QByteArray digest = hash.result();
    if (size < 0 || digest.isEmpty())
        return {};
    return digest;
}

} // namespace corvane
