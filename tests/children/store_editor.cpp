// An Engine that makes random edits and reports each, to be killed amidst them.
//
// store_editor <seed> <edits>: works on the settings that the environment names. Before each edit it writes
// the line "next ROWS", and "done" as soon as the edit has returned; "ready ROWS" comes before the first.
// ROWS is what the store then has to hold, kept here beside the Engine: a JSON array of [id, name, kind,
// source, bit rate, family, outputs]. The id of a pipeline that is still to be added is "*".

#include "engine/Engine.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>

#include <unistd.h>

#include <cstdlib>
#include <functional>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

struct Row
{
    QString id;
    QString name = {};
    int kind = 4;
    QString uri = {};
    int bitrate = 6000;
    int hw = 0;
    int outputs = 0;
};

void tell(const QByteArray &line)
{
    // One write call: a line is written whole or, if the process is killed before, not at all.
    const QByteArray whole = line + '\n';
    if (write(STDOUT_FILENO, whole.constData(), size_t(whole.size())) != whole.size())
        std::exit(3);
}

void tell(const char *word, const QList<Row> &rows)
{
    QJsonArray array;
    for (const Row &row : rows)
        array.append(QJsonArray{row.id, row.name, row.kind, row.uri, row.bitrate, row.hw, row.outputs});
    tell(QByteArray(word) + ' ' + QJsonDocument(array).toJson(QJsonDocument::Compact));
}

/// One random edit, of the rows and of the Engine alike.
void edit(Engine &engine, QList<Row> &rows, QRandomGenerator &random)
{
    const auto below = [&random](qsizetype bound) { return int(random.bounded(int(bound))); };
    const QString text = u"texto %1 ç"_s.arg(random.generate());

    if (rows.isEmpty() || (rows.size() < 20 && below(8) == 0)) {
        rows.append({u"*"_s, text});
        tell("next", rows);
        rows.last().id = engine.addPipeline(text);
        tell("done");
        return;
    }

    const int index = below(rows.size());
    Row &row = rows[index];
    const QString id = row.id;
    std::function<void()> act;
    switch (below(7)) {
    case 0:
        rows.removeAt(index);
        act = [&] { engine.removePipeline(id); };
        break;
    case 1:
        row.uri = text;
        row.kind = 5;
        act = [&] { engine.configureSource(id, {{u"kind"_s, u"file"_s}, {u"uri"_s, text}}); };
        break;
    case 2: {
        row.bitrate = below(20000);
        row.hw = 2;
        act = [&, rate = row.bitrate] {
            engine.configureEncoder(id, {{u"bitrate"_s, rate}, {u"hw"_s, u"nvenc"_s}});
        };
        break;
    }
    case 3:
        ++row.outputs;
        act = [&] { engine.addRtmpOutput(id, text); };
        break;
    case 4:
        if (row.outputs > 0)
            --row.outputs;
        act = [&] { engine.removeOutput(id, 0); };
        break;
    case 5:
        row.outputs = 0;
        act = [&] { engine.clearOutputs(id); };
        break;
    default:
        row.name = text;
        act = [&] { engine.renamePipeline(id, text); };
        break;
    }
    tell("next", rows);
    act();
    tell("done");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(u"corvane-test"_s);
    QCoreApplication::setApplicationName(u"store"_s);
    if (argc != 3)
        return 64;

    Engine engine;
    QRandomGenerator random(quint32(std::atoi(argv[1])));
    QList<Row> rows;
    const QVariantList restored = engine.pipelines();
    for (const QVariant &view : restored)
        rows.append({view.toMap().value(u"id"_s).toString(), view.toMap().value(u"name"_s).toString()});
    // Fields of a restored pipeline that the view doesn't show are set again.
    for (Row &row : rows) {
        engine.configureSource(row.id, {{u"kind"_s, u"test"_s}, {u"uri"_s, u""_s}});
        engine.configureEncoder(row.id, {{u"bitrate"_s, 6000}, {u"hw"_s, u"auto"_s}});
    }
    tell("ready", rows);
    for (int done = 0; done < std::atoi(argv[2]); ++done) {
        edit(engine, rows, random);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    tell("end");
    char input = 0;
    while (read(STDIN_FILENO, &input, 1) > 0) {
    } // until it is killed, or its parent is gone
    return 0;
}
