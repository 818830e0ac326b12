#include "tools/air/AirWatch.h"

#include "tools/air/FfmpegWords.h"
#include "tools/air/ProgressLine.h"

#include <algorithm>
#include <utility>

namespace corvane::air {

namespace {

/// Lines behind the first of the one silent message that has several.
bool isRestOfSilent(std::string_view text)
{
    return text.find_first_not_of("\r\n") == std::string_view::npos ||
           text.starts_with("[q] command received");
}

} // namespace

AirWatch::AirWatch(const CorvaneList &list)
    : m_legs(list.legs)
    , m_liveSource(list.liveSource)
    , m_fates(list.legs)
{
}

void AirWatch::onErrorBytes(std::string_view bytes, std::int64_t now)
{
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const char c = bytes[at];
        const bool afterReturn = std::exchange(m_afterReturn, c == '\r');
        if (c == '\n' && afterReturn && m_partial.empty()) {
            // Ended already, and the rest of its end has come later.
            if (m_lastPassed)
                m_output.emplace_back("\n");
            continue;
        }
        m_partial += c;
        const bool endGoesOn = c == '\r' && at + 1 < bytes.size() && bytes[at + 1] == '\n';
        if ((c == '\n' || c == '\r') && !endGoesOn)
            onLine(std::exchange(m_partial, {}), now);
    }
}

void AirWatch::onErrorEnd(std::int64_t now)
{
    if (!m_partial.empty())
        onLine(std::exchange(m_partial, {}), now);
}

void AirWatch::onLine(std::string_view line, std::int64_t now)
{
    const FfmpegLine read = readFfmpegLine(line);
    if (isProgress(read.text)) {
        onProgressLine(read.text, now);
        return;
    }
    const bool awayBefore = m_fates.anyAway();
    const auto event = m_fates.read(read, now);
    if (!m_fates.anyUp())
        m_meter.clear();
    m_lastPassed = passes(read, awayBefore);
    if (m_lastPassed)
        m_output.push_back(withoutSecrets(withoutLevel(line), m_legs));
    if (event)
        onFate(*event);
}

void AirWatch::onProgressLine(std::string_view line, std::int64_t now)
{
    // Without a queue ffmpeg prints none before it is connected, and the program's patience ends a connection
    // attempt that takes too long.
    m_lastPassed = m_fates.connected();
    if (!m_lastPassed)
        return;
    m_hang.onProgress(now);
    m_output.push_back(m_meter.bytes() > 0 ? withFigures(line, m_meter.bytes(), m_meter.kbitsPerSecond())
                                           : std::string(line));
}

bool AirWatch::passes(const FfmpegLine &line, bool away)
{
    switch (line.level) {
    case FfmpegLine::Level::Silent:
        return false;
    case FfmpegLine::Level::None: // of a library that prints by itself, or the rest of a silent message
        return !isRestOfSilent(line.text) && !holdsATarget(line.text);
    case FfmpegLine::Level::Shown:
        break;
    }
    if (!isOfALeg(line.context))
        return true;
    // Every attempt repeats the same words. At the start, when nothing else reports them, each is shown once.
    const bool isNew = !m_fates.connected() && m_said.emplace(line.text).second;
    return isNew || !away;
}

bool AirWatch::holdsATarget(std::string_view text) const
{
    return std::any_of(m_legs.begin(), m_legs.end(),
                       [&](const Leg &leg) { return text.find(leg.target) != std::string_view::npos; });
}

void AirWatch::onFate(const LegFates::Event &event)
{
    if (m_askedToStopAt >= 0)
        return;
    using Kind = LegFates::Event::Kind;
    switch (event.kind) {
    case Kind::StartFailed:
        condemn(1);
        break;
    case Kind::Lost:
        say("destino " + hostAndPort(m_legs[event.leg].target) +
            " perdido — a codificação continua, reconectando a cada segundo");
        break;
    case Kind::Back:
        say("destino " + hostAndPort(m_legs[event.leg].target) + " de volta após " +
            std::to_string((event.awayMs + 500) / 1000) + " s");
        break;
    case Kind::Flickered:
        say("um dos destinos caiu e já está de volta");
        break;
    }
}

void AirWatch::onInput(std::string_view bytes, std::int64_t now)
{
    if (m_askedToStopAt < 0 && bytes.find('q') != std::string_view::npos)
        m_askedToStopAt = now;
}

void AirWatch::onStream(std::int64_t bytes, std::int64_t now)
{
    if (m_fates.anyUp())
        m_meter.add(now, bytes);
}

void AirWatch::onEnding(std::int64_t now)
{
    if (m_askedToStopAt >= 0 || m_endingAt >= 0)
        return;
    m_endingAt = now;
    if (m_liveSource) {
        say("a fonte terminou sem pedido de parada — saindo com code=1");
        condemn(1);
    }
}

void AirWatch::onTick(std::int64_t now)
{
    const bool hung = m_hang.isHungAt(now);
    if (m_verdict)
        return;
    if (m_askedToStopAt >= 0) {
        if (now - m_askedToStopAt >= stopMs)
            condemn(0);
    } else if (m_endingAt >= 0) {
        if (now - m_endingAt >= drainMs)
            condemn(0);
    } else if (hung) {
        say("ffmpeg sem progresso há " + std::to_string((now - m_hang.quietSince) / 1000) +
            " s — encerrando com code=1");
        condemn(1);
    }
}

int AirWatch::exitCodeFor(int code)
{
    if (code != 0 || m_askedToStopAt >= 0 || !m_liveSource)
        return code;
    if (m_endingAt < 0)
        say("o ffmpeg terminou sem pedido de parada — saindo com code=1");
    return 1;
}

std::vector<std::string> AirWatch::takeOutput()
{
    return std::exchange(m_output, {});
}

void AirWatch::say(const std::string &line)
{
    m_output.push_back("[air] " + line + '\n');
}

void AirWatch::condemn(int code)
{
    if (!m_verdict)
        m_verdict = code;
}

} // namespace corvane::air
