#pragma once

#include "tests/guardian/ZipMaker.h"
#include "tools/guardian/Supervisor.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace corvane::test {

/// A temporary directory with an installation of fake_corvane, version 0.1.0, and a runtime directory.
class GuardedFolder
{
public:
    GuardedFolder();

    [[nodiscard]] QString path(const QString &name) const { return m_folder.filePath(name); }
    [[nodiscard]] QString runtimeDir() const { return path(QStringLiteral("runtime")); }
    [[nodiscard]] guardian::Installation installation() const;
    /// For a guardian of this installation that looks often.
    [[nodiscard]] guardian::GuardianSettings settings() const;

    /// An installation in `folder`; its program does what `behaviour` says.
    static void install(const QString &folder, const QByteArray &version, const QByteArray &behaviour);
    /// The same as the entries of a package.
    [[nodiscard]] static QList<ZipItem> packageOf(const QByteArray &version, const QByteArray &behaviour);

    /// Puts the package into the update directory, with its ready file, as the program does.
    void stage(const QByteArray &version, const QList<ZipItem> &items) const;
    [[nodiscard]] QString stagedPath(const QByteArray &version) const;
    /// The manifest that offers what is staged now, unsigned.
    [[nodiscard]] QByteArray manifestOf(const QByteArray &version) const;

    /// Makes apply-now.
    void request() const;
    [[nodiscard]] bool isRequested() const;
    /// Tells the running fake_corvane: "quit", "crash".
    void order(const QString &what) const;
    /// One for each start: version and feed.
    [[nodiscard]] QStringList starts() const;
    /// Version in the installation's folder, or in another.
    [[nodiscard]] static QByteArray versionIn(const QString &folder);

private:
    QTemporaryDir m_folder;
};

} // namespace corvane::test
