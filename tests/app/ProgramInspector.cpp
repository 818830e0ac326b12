// A plugin that the program loads into itself when QT_QPA_GENERIC_PLUGINS names it: it looks at the running
// program from within, once its event loop runs.
//
//   CORVANE_INSPECT_REPORT=PATH   write what was found to PATH, as one JSON object
//   CORVANE_INSPECT_THEN=WORD     and then: "quit" ends the event loop, "exit-7" with that code; "throw" lets
//                                 a standard exception leave a slot, "throw-other" one of another kind;
//                                 "six-hours" has the time of the update timer pass, and quits with the check
//                                 that follows; "beats" adds a byte to PATH.beats after each turn of the
//                                 heartbeat's timer

#include "tests/app/SymbolExporter.h"

#include <QCoreApplication>
#include <QFile>
#include <QGenericPlugin>
#include <QGuiApplication>
#include <QIcon>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QSaveFile>
#include <QTimer>
#include <QWindow>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

QJsonValue textOf(const QString &resource)
{
    QFile file(resource);
    return file.open(QIODevice::ReadOnly) ? QJsonValue(QString::fromUtf8(file.readAll())) : QJsonValue::Null;
}

/// True if a document may import this version of the module.
bool imports(const QByteArray &moduleAndVersion)
{
    QQmlEngine engine;
    QQmlComponent document(&engine);
    document.setData("import QtQml\nimport " + moduleAndVersion + "\nQtObject {}", QUrl());
    return document.isReady();
}

QObject *contextObject(const QString &name)
{
    const QWindowList shown = QGuiApplication::topLevelWindows();
    for (const QWindow *window : shown) {
        if (const QQmlContext *context = qmlContext(window))
            return context->engine()->rootContext()->contextProperty(name).value<QObject *>();
    }
    return nullptr;
}

/// The program's own, by their names.
QJsonObject timers()
{
    QJsonObject found;
    const auto own = qApp->findChildren<const QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    for (const QTimer *timer : own) {
        if (!timer->objectName().isEmpty())
            found.insert(timer->objectName(),
                         u"%1%2 ms%3"_s.arg(timer->isSingleShot() ? u"once after "_s : u"every "_s)
                             .arg(timer->interval())
                             .arg(timer->isActive() ? QString() : u", at rest"_s));
    }
    return found;
}

/// Its time has come, or has been there: it was started more than an interval ago.
bool isDue(const QString &timer, const QString &trace)
{
    const auto *found = qApp->findChild<const QTimer *>(timer);
    return found && (found->remainingTime() == 0 || QFile::exists(trace));
}

/// From here on the event loop ends with the first check for updates, which is the timer's.
void passSixHours()
{
    qApp->findChild<QTimer *>(u"firstUpdateTimer"_s)->stop();
    QObject::connect(contextObject(u"updater"_s), SIGNAL(logLine(QString)), qApp, SLOT(quit()));
    qApp->findChild<QTimer *>(u"updateTimer"_s)->setInterval(0);
}

/// The program's own connection is the older one: its write has been tried by then.
void countBeats()
{
    QObject::connect(qApp->findChild<QTimer *>(u"heartbeatTimer"_s), &QTimer::timeout, qApp, [] {
        QFile beats(qEnvironmentVariable("CORVANE_INSPECT_REPORT") + ".beats"_L1);
        if (beats.open(QIODevice::Append))
            beats.putChar('.');
    });
}

QJsonObject findings()
{
    QJsonArray windows;
    QJsonObject contextProperties;
    const QWindowList shown = QGuiApplication::topLevelWindows();
    for (const QWindow *window : shown) {
        const QQmlContext *context = qmlContext(window);
        if (!context)
            continue;
        QJsonArray iconWidths;
        const QList<QSize> sizes = window->icon().availableSizes();
        for (const QSize &size : sizes)
            iconWidths.append(window->icon().pixmap(size).toImage().width());
        windows.append(QJsonObject{{u"title"_s, window->title()},
                                   {u"source"_s, context->baseUrl().toString()},
                                   {u"iconWidths"_s, iconWidths}});
        for (const QString &name : {u"engine"_s, u"updater"_s}) {
            const QObject *object = contextObject(name);
            contextProperties.insert(name, object ? QString::fromLatin1(object->metaObject()->className())
                                                  : QString());
        }
    }
    return {
        {u"applicationClass"_s, QString::fromLatin1(qApp->metaObject()->className())},
        {u"applicationName"_s, QCoreApplication::applicationName()},
        {u"organizationName"_s, QCoreApplication::organizationName()},
        {u"organizationDomain"_s, QCoreApplication::organizationDomain()},
        {u"applicationVersion"_s, QCoreApplication::applicationVersion()},
        {u"qmldir"_s, textOf(u":/qt/qml/Corvane/qmldir"_s)},
        {u"mainSource"_s, textOf(u":/qt/qml/Corvane/app/qml/Main.qml"_s)},
        {u"registrationExportedBy"_s, corvane::test::exporterOf("_Z26qml_register_types_Corvanev")},
        {u"imports10"_s, imports("Corvane 1.0")},
        {u"imports20"_s, imports("Corvane 2.0")},
        {u"garbageCollectionLimit"_s, qEnvironmentVariable("QV4_GC_TIMELIMIT")},
        {u"windows"_s, windows},
        {u"contextProperties"_s, contextProperties},
        {u"timers"_s, timers()},
        {u"heartbeatIsDue"_s,
         isDue(u"heartbeatTimer"_s, qEnvironmentVariable("CORVANE_RUNTIME_DIR") + "/.heartbeat"_L1)},
    };
}

void inspect()
{
    QSaveFile report(qEnvironmentVariable("CORVANE_INSPECT_REPORT"));
    if (report.open(QIODevice::WriteOnly)) {
        report.write(QJsonDocument(findings()).toJson());
        report.commit();
    }
    const QString then = qEnvironmentVariable("CORVANE_INSPECT_THEN");
    if (then == "quit"_L1)
        QCoreApplication::quit();
    else if (then == "exit-7"_L1)
        QCoreApplication::exit(7);
    else if (then == "six-hours"_L1)
        passSixHours();
    else if (then == "beats"_L1)
        countBeats();
    else if (then == "throw"_L1)
        throw std::runtime_error("falha de propósito");
    else if (then == "throw-other"_L1)
        throw 1;
}

} // namespace

class ProgramInspector : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "ProgramInspector.json")

public:
    QObject *create(const QString & /*name*/, const QString & /*spec*/) override
    {
        // Called while the application object is being created; nothing of the program exists yet.
        auto *looker = new QObject(this);
        QTimer::singleShot(0, looker, &inspect);
        return looker;
    }
};

#include "ProgramInspector.moc"
