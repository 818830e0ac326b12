#include "tests/support/RtmpServer.h"

#include "tests/support/TestSupport.h"

#include <QFile>
#include <QHostAddress>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

const QString rtmpModule = u"/usr/lib/nginx/modules/ngx_rtmp_module.so"_s;

quint16 freeTcpPort()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHost) ? server.serverPort() : 0;
}

QString configuration(quint16 port, const QString &directory)
{
    return uR"(daemon off;
master_process off;
load_module %3;
pid %1/nginx.pid;
error_log %1/error.log warn;
events {}
rtmp {
    access_log off; # where it would go by itself, only root may write
    server {
        listen 127.0.0.1:%2;
        application live {
            live on;
            record all;
            record_path %1;
            record_suffix .flv;
        }
    }
}
)"_s.arg(directory, QString::number(port), rtmpModule);
}

QString nginx()
{
    return QStandardPaths::findExecutable(u"nginx"_s, {u"/usr/sbin"_s, u"/usr/local/sbin"_s});
}

} // namespace

RtmpServer::RtmpServer() = default;

RtmpServer::~RtmpServer()
{
    stop();
}

QString RtmpServer::missing()
{
    if (nginx().isEmpty())
        return u"nginx isn't installed"_s;
    return QFile::exists(rtmpModule) ? QString() : u"nginx's RTMP module isn't installed"_s;
}

bool RtmpServer::start()
{
    for (int attempt = 0; attempt < serverStartAttempts; ++attempt) {
        m_port = freeTcpPort();
        if (serve())
            return true;
    }
    return false;
}

bool RtmpServer::startAgain()
{
    return serve();
}

bool RtmpServer::serve()
{
    QFile file(m_directory.filePath(u"nginx.conf"_s));
    if (!file.open(QIODevice::WriteOnly)) {
        m_error = file.errorString();
        return false;
    }
    file.write(configuration(m_port, m_directory.path()).toUtf8());
    file.close();

    m_nginx = std::make_unique<QProcess>();
    m_nginx->setProcessChannelMode(QProcess::MergedChannels);
    m_nginx->start(nginx(), {u"-p"_s, m_directory.path(), u"-e"_s, m_directory.filePath(u"error.log"_s),
                             u"-c"_s, file.fileName()});
    // Each attempt costs a connection; the exit of nginx is the other way out.
    for (int waited = 0; waited < serverStartTimeoutMs && !m_nginx->waitForFinished(50); waited += 50) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        if (probe.waitForConnected(1000))
            return true;
    }
    m_error = QString::fromUtf8(m_nginx->readAll());
    stop();
    return false;
}

void RtmpServer::stop()
{
    if (!m_nginx)
        return;
    m_nginx->terminate();
    if (!m_nginx->waitForFinished(5000)) {
        m_nginx->kill();
        m_nginx->waitForFinished();
    }
    m_nginx.reset();
}

QString RtmpServer::url(const QString &streamName) const
{
    return u"rtmp://127.0.0.1:%1/live/%2"_s.arg(QString::number(m_port), streamName);
}

QString RtmpServer::recording(const QString &streamName) const
{
    return m_directory.filePath(streamName + ".flv"_L1);
}

} // namespace corvane::test
