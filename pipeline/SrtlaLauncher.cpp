#include "pipeline/SrtlaLauncher.h"

#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

SrtlaLauncher::SrtlaLauncher(OutputConfig output, QObject *parent)
    : QObject(parent)
    , m_output(std::move(output))
    , m_child(
          {u"srtla_send"_s,
           u"srtla_send não encontrado — agregação de banda indisponível (ver third_party/README.md). Use saída SRT nativa como fallback."_s,
           u"MORREU (code=%1) — bonding interrompido"_s},
          this)
{
    connect(&m_child, &TransportChild::logLine, this, &SrtlaLauncher::logLine);
}

void SrtlaLauncher::start()
{
    m_child.start({QString::number(m_output.bondPort()), m_output.receiverHost,
                   QString::number(m_output.receiverPort)});
}

void SrtlaLauncher::stop()
{
    m_child.stop();
}

} // namespace corvane
