#include "tests/bench/RemoteWrite.h"

#include <QHostAddress>
#include <QtEndian>

#include <bit>

namespace corvane::bench {

namespace {

constexpr qsizetype largestLiteral = 65536;
constexpr char literalWithTwoBytesOfLength = char(61 << 2);

/// Wire types of Protocol Buffers.
enum class Wire : unsigned { Varint = 0, Fixed64 = 1, Length = 2 };

void appendVarint(QByteArray &to, quint64 number)
{
    for (; number >= 0x80; number >>= 7)
        to += char(number | 0x80);
    to += char(number);
}

void appendTag(QByteArray &to, unsigned field, Wire type)
{
    appendVarint(to, field << 3 | unsigned(type));
}

void appendBytes(QByteArray &to, unsigned field, const QByteArray &bytes)
{
    appendTag(to, field, Wire::Length);
    appendVarint(to, quint64(bytes.size()));
    to += bytes;
}

QByteArray message(const Sample &sample)
{
    QByteArray bytes;
    appendTag(bytes, 1, Wire::Fixed64);
    char value[8];
    qToLittleEndian(std::bit_cast<quint64>(sample.value), value);
    bytes.append(value, sizeof value);
    appendTag(bytes, 2, Wire::Varint);
    appendVarint(bytes, quint64(sample.timeMs));
    return bytes;
}

QByteArray message(const TimeSeries &series)
{
    QByteArray bytes;
    for (const auto &[name, value] : series.labels) {
        QByteArray label;
        appendBytes(label, 1, name);
        appendBytes(label, 2, value);
        appendBytes(bytes, 1, label);
    }
    for (const Sample &sample : series.samples)
        appendBytes(bytes, 2, message(sample));
    return bytes;
}

QByteArray inSnappy(const QByteArray &plain)
{
    QByteArray block;
    appendVarint(block, quint64(plain.size()));
    for (qsizetype from = 0; from < plain.size(); from += largestLiteral) {
        const qsizetype length = qMin(largestLiteral, plain.size() - from);
        block += literalWithTwoBytesOfLength;
        block += char((length - 1) & 0xff);
        block += char((length - 1) >> 8);
        block += plain.sliced(from, length);
    }
    return block;
}

} // namespace

QByteArray writeRequest(const QList<TimeSeries> &series)
{
    QByteArray plain;
    for (const TimeSeries &one : series)
        appendBytes(plain, 1, message(one));
    return inSnappy(plain);
}

RemoteWriter::RemoteWriter(quint16 port)
{
    connect(&m_socket, &QTcpSocket::connected, this, &RemoteWriter::send);
    connect(&m_socket, &QTcpSocket::readyRead, this, &RemoteWriter::read);
    connect(&m_socket, &QTcpSocket::errorOccurred, this,
            [this] { m_failure = m_socket.errorString().toUtf8(); });
    m_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
}

void RemoteWriter::post(const QByteArray &body)
{
    m_bodies += body;
    if (m_bodies.size() == 1 && m_socket.state() == QAbstractSocket::ConnectedState)
        send();
}

void RemoteWriter::send()
{
    if (m_bodies.isEmpty())
        return;
    m_socket.write("POST /api/v1/write HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Encoding: snappy\r\n"
                   "Content-Type: application/x-protobuf\r\nX-Prometheus-Remote-Write-Version: 0.1.0\r\n"
                   "Content-Length: " +
                   QByteArray::number(m_bodies.constFirst().size()) + "\r\n\r\n" + m_bodies.constFirst());
}

void RemoteWriter::read()
{
    m_answer += m_socket.readAll();
    if (!m_answer.contains("\r\n\r\n"))
        return;
    if (!m_answer.startsWith("HTTP/1.1 204 ")) { // a success has no body
        m_failure = m_answer;
        return;
    }
    m_answer.clear();
    m_bodies.removeFirst();
    send();
}

} // namespace corvane::bench
