// A plugin that the program loads into itself when QT_QPA_GENERIC_PLUGINS names it: it looks at the running
// program from within, once its event loop runs.
//
//   CORVANE_INSPECT_REPORT=PATH   write what was found to PATH, as one JSON object
//   CORVANE_INSPECT_THEN=WORD     and then: "quit" ends the event loop; "throw" lets one standard exception
//   leave a
//                                 slot, "throw-other" one of another kind

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

/// Whether a document may import this version of the module.
bool imports(const QByteArray &moduleAndVersion)
{
    QQmlEngine engine;
    QQmlComponent document(&engine);
    document.setData("import QtQml\nimport " + moduleAndVersion + "\nQtObject {}", QUrl());
    return document.isReady();
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
            const auto *object = context->engine()->rootContext()->contextProperty(name).value<QObject *>();
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
        // Called while the application object is being made; nothing of the program exists yet.
        auto *looker = new QObject(this);
        QTimer::singleShot(0, looker, &inspect);
        return looker;
    }
};

#include "ProgramInspector.moc"
