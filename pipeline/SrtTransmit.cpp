#include "pipeline/SrtTransmit.h"

#include "builder/CommandBuilder.h"

#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

SrtTransmit::SrtTransmit(OutputConfig output, QObject *parent)
    : QObject(parent)
    , m_output(std::move(output))
    , m_child(
          {u"srt-live-transmit"_s,
           u"srt-live-transmit não encontrado — SRT indisponível (brew install srt). RTMP continua funcionando."_s,
           u"MORREU (code=%1, %2) — SRT interrompido"_s},
          this)
{
    connect(&m_child, &TransportChild::logLine, this, &SrtTransmit::logLine);
}

QString SrtTransmit::targetUrl() const
{
    QString url = CommandBuilder::srtUrl(m_output);
    if (url.contains("mode="_L1))
        return url;
    return url + (url.contains(u'?') ? u'&' : u'?') + "mode=caller"_L1;
}

void SrtTransmit::start()
{
    m_child.start({u"udp://:%1"_s.arg(m_output.localPort), targetUrl()});
}

void SrtTransmit::stop()
{
    m_child.stop();
}

} // namespace corvane
