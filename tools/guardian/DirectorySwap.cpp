#include "tools/guardian/DirectorySwap.h"

#include "tools/guardian/DirectoryMoves.h"
#include "tools/guardian/DiskSync.h"
#include "tools/guardian/FolderRemoval.h"
#include "tools/guardian/PackageEntries.h"
#include "tools/guardian/RegularFile.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 largestJson = 1 << 20;

QString stampPath(const QString &directory)
{
    return directory + u'/' + QString::fromLatin1(stampName);
}

QJsonObject jsonOf(const Stamp &stamp)
{
    return {{u"id"_s, stamp.id}, {u"version"_s, stamp.version}, {u"sha256"_s, stamp.sha256}};
}

Stamp stampOf(const QJsonObject &json)
{
    return {json["id"_L1].toString(), json["version"_L1].toString(), json["sha256"_L1].toString()};
}

QJsonObject readJson(const QString &path)
{
    const RegularFile opened = openRegularFile(path, largestJson);
    return opened.file ? QJsonDocument::fromJson(opened.file->readAll()).object() : QJsonObject();
}

/// Whole or not at all, also after a power cut. Answers why not.
QString writeJson(const QString &path, const QJsonObject &json)
{
    const QByteArray text = QJsonDocument(json).toJson();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        return u"%1 can't be written: %2"_s.arg(path, file.errorString());
    if (!syncFolder(QFileInfo(path).path()))
        return u"%1 can't be brought to the disk"_s.arg(path);
    return {};
}

bool exists(const QString &folder)
{
    return QFileInfo::exists(folder);
}

} // namespace

Stamp readStamp(const QString &directory)
{
    return stampOf(readJson(stampPath(directory)));
}

QString writeStamp(const QString &directory, const Stamp &stamp)
{
    return writeJson(stampPath(directory), jsonOf(stamp));
}

DirectorySwap::DirectorySwap(Installation installation)
    : m_at(std::move(installation))
{
}

// --- The road forward and the road back

QString DirectorySwap::install(const Stamp &stamp)
{
    step("journal: installing");
    if (QString error = writeJournal({u"installing"_s, stamp}); !error.isEmpty())
        return error;
    step("remove what was kept");
    QString error = remove(m_at.failed());
    if (error.isEmpty())
        error = remove(m_at.previous());
    if (error.isEmpty())
        error = moveIn(m_at.next(), m_at.previous());
    if (!error.isEmpty()) {
        removeJournal();
        return error;
    }
    step("journal: trial");
    error = writeJournal({u"trial"_s, stamp});
    if (error.isEmpty())
        return {};
    // Nobody would know later that it is on trial.
    if (moveIn(m_at.previous(), m_at.next()).isEmpty()) {
        (void)remove(m_at.next());
        removeJournal();
    }
    return error;
}

void DirectorySwap::confirm()
{
    step("journal: done");
    removeJournal();
}

bool DirectorySwap::canRollBack() const
{
    return QFileInfo(m_at.previous() + u'/' + m_at.program).isFile();
}

QString DirectorySwap::rollBack()
{
    if (!exists(m_at.previous()))
        return u"there is no former installation in %1"_s.arg(m_at.previous());
    const std::optional<Journal> journal = readJournal();
    step("journal: rolling back");
    if (QString error =
            writeJournal({u"rolling back"_s, journal ? journal->stamp : readStamp(m_at.directory)});
        !error.isEmpty())
        return error;
    step("remove what failed before");
    QString error = remove(m_at.failed());
    if (error.isEmpty())
        error = moveIn(m_at.previous(), m_at.failed());
    if (!error.isEmpty()) {
        if (journal)
            (void)writeJournal(*journal);
        else
            removeJournal();
        return error;
    }
    step("journal: done");
    removeJournal();
    return {};
}

QString DirectorySwap::moveIn(const QString &incoming, const QString &outgoing) const
{
    if (QString error = exchangeOrRename(incoming, outgoing); !error.isEmpty())
        return error;
    const QString reason = whyNotLeave ? whyNotLeave(outgoing) : QString();
    if (!reason.isEmpty()) {
        const QString error = exchangeOrRename(outgoing, incoming);
        return u"%1 can't be replaced: %2"_s.arg(m_at.directory, error.isEmpty() ? reason : error);
    }
    syncMoves();
    return {};
}

QString DirectorySwap::exchangeOrRename(const QString &incoming, const QString &outgoing) const
{
    step("exchange");
    const ExchangeResult result = mayExchange ? exchangeFolders(incoming, m_at.directory)
                                              : ExchangeResult{ExchangeResult::NotSupported, {}};
    if (result.kind == ExchangeResult::Failed)
        return u"%1 and %2 can't be exchanged: %3"_s.arg(incoming, m_at.directory, result.error);
    if (result.kind == ExchangeResult::Exchanged) {
        step("name what went out");
        QString error = moveFolder(incoming, outgoing);
        if (error.isEmpty())
            return {};
        (void)exchangeFolders(incoming, m_at.directory);
        return u"%1 can't be moved: %2"_s.arg(incoming, error);
    }
    step("move out");
    QString error = moveFolder(m_at.directory, outgoing);
    if (!error.isEmpty())
        return u"%1 can't be moved: %2"_s.arg(m_at.directory, error);
    step("move in");
    error = moveFolder(incoming, m_at.directory);
    if (error.isEmpty())
        return {};
    // A whole installation at its place, be it the old one.
    (void)moveFolder(outgoing, m_at.directory);
    return u"%1 can't be moved: %2"_s.arg(incoming, error);
}

/// A failure is no failure of the move: the names are changed, be it on the disk already or not.
void DirectorySwap::syncMoves() const
{
    (void)syncFolder(m_at.own());
    (void)syncFolder(QFileInfo(m_at.directory).path());
}

// --- After a stop in between

DirectorySwap::Found DirectorySwap::recover()
{
    removeLeftovers(m_at.own());
    const std::optional<Journal> journal = readJournal();
    if (!journal) {
        // Unpacked, but never put in place.
        step("remove what wasn't put in place");
        (void)remove(m_at.next());
        return exists(m_at.directory) ? Found::Idle : Found::Broken;
    }
    if (journal->state == "installing"_L1)
        return recoverInstalling(*journal);
    if (journal->state == "rolling back"_L1)
        return recoverRollBack(*journal);
    return exists(m_at.directory) ? Found::Trial : Found::Broken;
}

DirectorySwap::Found DirectorySwap::recoverInstalling(const Journal &journal)
{
    const bool isIn = exists(m_at.directory) && readStamp(m_at.directory).id == journal.stamp.id;
    if (!isIn && exists(m_at.directory)) {
        // The old one is in place: the request still stands, and the update starts from its beginning.
        step("undo");
        (void)remove(m_at.next());
        removeJournal();
        return Found::Idle;
    }
    if (completeMoveIn(m_at.next(), m_at.previous(), isIn)) {
        step("journal: trial");
        return writeJournal({u"trial"_s, journal.stamp}).isEmpty() ? Found::Trial : Found::Broken;
    }
    // The new one is lost, the old one isn't.
    if (!moveFolder(m_at.previous(), m_at.directory).isEmpty())
        return Found::Broken;
    removeJournal();
    return Found::Idle;
}

DirectorySwap::Found DirectorySwap::recoverRollBack(const Journal &journal)
{
    if (exists(m_at.directory) && readStamp(m_at.directory).id == journal.stamp.id) {
        const auto mustWait = [this] { return whyNotReplace && !whyNotReplace().isEmpty(); };
        if (mustWait())
            return Found::RollBackDue;
        if (!remove(m_at.failed()).isEmpty() || !moveIn(m_at.previous(), m_at.failed()).isEmpty())
            return mustWait() ? Found::RollBackDue : Found::Broken;
    } else if (!completeMoveIn(m_at.previous(), m_at.failed(), exists(m_at.directory))) {
        return Found::Broken;
    }
    step("journal: done");
    removeJournal();
    return Found::RolledBack;
}

bool DirectorySwap::completeMoveIn(const QString &incoming, const QString &outgoing, bool isIn) const
{
    step("complete");
    if (!isIn)
        return exists(incoming) && moveFolder(incoming, m_at.directory).isEmpty();
    // Exchanged already: under the incoming folder's name lies what went out.
    return !exists(incoming) || moveFolder(incoming, outgoing).isEmpty();
}

// --- The journal

Stamp DirectorySwap::onTrial() const
{
    const std::optional<Journal> journal = readJournal();
    return journal ? journal->stamp : Stamp();
}

int DirectorySwap::closedEarly() const
{
    const std::optional<Journal> journal = readJournal();
    return journal ? journal->closedEarly : 0;
}

bool DirectorySwap::countEarlyClose()
{
    std::optional<Journal> journal = readJournal();
    if (!journal)
        return false;
    ++journal->closedEarly;
    return writeJournal(*journal).isEmpty();
}

std::optional<DirectorySwap::Journal> DirectorySwap::readJournal() const
{
    const QJsonObject json = readJson(m_at.journal());
    if (json.isEmpty())
        return std::nullopt;
    return Journal{json["state"_L1].toString(), stampOf(json["installation"_L1].toObject()),
                   json["closed_early"_L1].toInt()};
}

QString DirectorySwap::writeJournal(const Journal &journal) const
{
    return writeJson(m_at.journal(), QJsonObject{{u"state"_s, journal.state},
                                                 {u"installation"_s, jsonOf(journal.stamp)},
                                                 {u"closed_early"_s, journal.closedEarly}});
}

void DirectorySwap::removeJournal() const
{
    QFile::remove(m_at.journal());
    (void)syncFolder(m_at.own());
}

void DirectorySwap::step(const char *name) const
{
    if (beforeStep)
        beforeStep(name);
}

QString DirectorySwap::remove(const QString &path) const
{
    if (whyNotRemove && isTaken(path)) {
        if (const QString reason = whyNotRemove(path); !reason.isEmpty())
            return u"%1 can't be removed: %2"_s.arg(path, reason);
    }
    return removeFolder(path, m_at.own());
}

} // namespace corvane::guardian
