#include "tools/guardian/DirectorySwap.h"

#include "tools/guardian/DirectoryMoves.h"
#include "tools/guardian/DiskSync.h"
#include "tools/guardian/PackageEntries.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

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
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

/// Whole or not at all, also after a power cut.
bool writeJson(const QString &path, const QJsonObject &json)
{
    const QByteArray text = QJsonDocument(json).toJson();
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit() &&
           syncFolder(QFileInfo(path).path());
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

bool writeStamp(const QString &directory, const Stamp &stamp)
{
    return writeJson(stampPath(directory), jsonOf(stamp));
}

DirectorySwap::DirectorySwap(Installation installation)
    : m_at(std::move(installation))
{
}

// --- The road forward and the road back

bool DirectorySwap::install(const Stamp &stamp)
{
    step("journal: installing");
    if (!writeJournal({u"installing"_s, stamp}))
        return false;
    step("remove what was kept");
    removeFolder(m_at.failed());
    removeFolder(m_at.previous());
    if (!moveIn(m_at.next(), m_at.previous())) {
        removeJournal();
        return false;
    }
    step("journal: trial");
    if (writeJournal({u"trial"_s, stamp}))
        return true;
    // Nobody would know later that it is on trial.
    if (moveIn(m_at.previous(), m_at.next())) {
        removeFolder(m_at.next());
        removeJournal();
    }
    return false;
}

void DirectorySwap::confirm()
{
    step("journal: done");
    removeJournal();
}

bool DirectorySwap::rollBack()
{
    const std::optional<Journal> journal = readJournal();
    if (!journal || !exists(m_at.previous()))
        return false;
    step("journal: rolling back");
    if (!writeJournal({u"rolling back"_s, journal->stamp}))
        return false;
    step("remove what failed before");
    removeFolder(m_at.failed());
    if (!moveIn(m_at.previous(), m_at.failed()))
        return false;
    step("journal: done");
    removeJournal();
    return true;
}

bool DirectorySwap::moveIn(const QString &incoming, const QString &outgoing) const
{
    step("exchange");
    const ExchangeResult result =
        mayExchange ? exchangeFolders(incoming, m_at.directory) : ExchangeResult::NotSupported;
    if (result == ExchangeResult::Failed)
        return false;
    if (result == ExchangeResult::Exchanged) {
        step("name what went out");
        if (moveFolder(incoming, outgoing)) {
            syncMoves();
            return true;
        }
        (void)exchangeFolders(incoming, m_at.directory);
        return false;
    }
    step("move out");
    if (!moveFolder(m_at.directory, outgoing))
        return false;
    step("move in");
    if (moveFolder(incoming, m_at.directory)) {
        syncMoves();
        return true;
    }
    // A whole installation at its place, be it the old one.
    (void)moveFolder(outgoing, m_at.directory);
    return false;
}

/// What has been moved has been moved, be it on the disk already or not.
void DirectorySwap::syncMoves() const
{
    (void)syncFolder(m_at.own());
    (void)syncFolder(QFileInfo(m_at.directory).path());
}

// --- After a stop in between

DirectorySwap::Found DirectorySwap::recover()
{
    const std::optional<Journal> journal = readJournal();
    if (!journal) {
        // Unpacked, but never put in place.
        step("remove what wasn't put in place");
        removeFolder(m_at.next());
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
        // The old one is in place: the request still stands, and begins anew.
        step("undo");
        removeFolder(m_at.next());
        removeJournal();
        return Found::Idle;
    }
    if (completeMoveIn(m_at.next(), m_at.previous(), isIn)) {
        step("journal: trial");
        return writeJournal({u"trial"_s, journal.stamp}) ? Found::Trial : Found::Broken;
    }
    // The new one is lost, the old one isn't.
    if (!moveFolder(m_at.previous(), m_at.directory))
        return Found::Broken;
    removeJournal();
    return Found::Idle;
}

DirectorySwap::Found DirectorySwap::recoverRollBack(const Journal &journal)
{
    if (exists(m_at.directory) && readStamp(m_at.directory).id == journal.stamp.id) {
        removeFolder(m_at.failed());
        if (!moveIn(m_at.previous(), m_at.failed()))
            return Found::Broken;
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
        return exists(incoming) && moveFolder(incoming, m_at.directory);
    // Exchanged already: under the incoming folder's name lies what went out.
    return !exists(incoming) || moveFolder(incoming, outgoing);
}

// --- The journal

Stamp DirectorySwap::onTrial() const
{
    const std::optional<Journal> journal = readJournal();
    return journal ? journal->stamp : Stamp();
}

std::optional<DirectorySwap::Journal> DirectorySwap::readJournal() const
{
    const QJsonObject json = readJson(m_at.journal());
    if (json.isEmpty())
        return std::nullopt;
    return Journal{json["state"_L1].toString(), stampOf(json["installation"_L1].toObject())};
}

bool DirectorySwap::writeJournal(const Journal &journal) const
{
    return writeJson(m_at.journal(),
                     QJsonObject{{u"state"_s, journal.state}, {u"installation"_s, jsonOf(journal.stamp)}});
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

void DirectorySwap::removeFolder(const QString &path) const
{
    QDir(path).removeRecursively();
}

} // namespace corvane::guardian
