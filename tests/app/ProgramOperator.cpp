// A plugin that the program loads into itself when QT_QPA_GENERIC_PLUGINS names it: it operates the running
// program from within, by files in the directory that CORVANE_OPERATE names.
//
//   ca.pem   there at the start: the one authority that this process trusts
//   said     written: log lines of the updater
//   air      its content is an RTMP address: a stream to it goes on air
//   off      all streams are stopped
//   button   the update button is clicked
//
// A file that is an order is removed when the order is carried out.

#include <QFile>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QMetaObject>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QSslConfiguration>
#include <QTimer>
#include <QVariantMap>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace {

constexpr int lookEveryMs = 20;

QString inDirectory(const QString &name)
{
    return qEnvironmentVariable("CORVANE_OPERATE") + u'/' + name;
}

QByteArray contentOf(const QString &name)
{
    QFile file(inDirectory(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QWindow *window()
{
    const QWindowList shown = QGuiApplication::topLevelWindows();
    for (QWindow *found : shown) {
        if (qmlContext(found))
            return found;
    }
    return nullptr;
}

QObject *contextObject(const QString &name)
{
    const QWindow *shown = window();
    return shown ? qmlContext(shown)->engine()->rootContext()->contextProperty(name).value<QObject *>()
                 : nullptr;
}

} // namespace

class Operator : public QObject
{
    Q_OBJECT

public:
    explicit Operator(QObject *parent)
        : QObject(parent)
    {
        connect(&m_timer, &QTimer::timeout, this, &Operator::look);
        m_timer.start(lookEveryMs);
    }

private Q_SLOTS:
    void write(const QString &line)
    {
        QFile said(inDirectory(u"said"_s));
        if (said.open(QIODevice::Append))
            said.write(line.toUtf8() + '\n');
    }

private:
    void look()
    {
        if (!m_listening) {
            QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
            trusting.setCaCertificates(QSslCertificate::fromData(contentOf(u"ca.pem"_s)));
            QSslConfiguration::setDefaultConfiguration(trusting);
            const QObject *updater = contextObject(u"updater"_s);
            m_listening = updater && connect(updater, SIGNAL(logLine(QString)), this, SLOT(write(QString)));
            return;
        }
        QObject *engine = contextObject(u"engine"_s);
        if (const QByteArray address = contentOf(u"air"_s); !address.isEmpty()) {
            QFile::remove(inDirectory(u"air"_s));
            goOnAir(engine, QString::fromUtf8(address));
        }
        if (QFile::remove(inDirectory(u"off"_s)))
            QMetaObject::invokeMethod(engine, "stopAll");
        if (QFile::remove(inDirectory(u"button"_s)))
            QMetaObject::invokeMethod(window()->findChild<QQuickItem *>(u"updateBtn"_s), "clicked");
    }

    static void goOnAir(QObject *engine, const QString &address)
    {
        QString id;
        QMetaObject::invokeMethod(engine, "addPipeline", Q_RETURN_ARG(QString, id),
                                  Q_ARG(QString, u"Teste"_s));
        const QVariantMap source{{u"width"_s, 320}, {u"height"_s, 180}, {u"fps"_s, 30}};
        QMetaObject::invokeMethod(engine, "configureSource", Q_ARG(QString, id), Q_ARG(QVariantMap, source));
        QMetaObject::invokeMethod(engine, "addRtmpOutput", Q_ARG(QString, id), Q_ARG(QString, address));
        QMetaObject::invokeMethod(engine, "startPipeline", Q_ARG(QString, id));
    }

    QTimer m_timer;
    bool m_listening = false;
};

class ProgramOperator : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "ProgramOperator.json")

public:
    QObject *create(const QString & /*name*/, const QString & /*spec*/) override
    {
        return new Operator(this);
    }
};

#include "ProgramOperator.moc"
