#include "tools/publish/Commands.h"

#include "tools/guardian/PackageArchive.h"
#include "tools/publish/PackageDigest.h"
#include "tools/publish/PublishKey.h"
#include "tools/publish/SignedManifest.h"
#include "update/UpdateSignature.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QFile>
#include <QSaveFile>
#include <QTextStream>

#include <iterator>
#include <optional>

using namespace Qt::StringLiterals;

namespace corvane::publish {

namespace {

constexpr qint64 bigPackage = 64LL << 20; ///< from here on hashing takes long enough to tell about

constexpr auto overview = R"(corvane-publish keygen|sign|verify ...

  keygen   makes the publisher's key pair
  sign     writes the manifest of a package, latest.json, with its signature
  verify   checks a manifest, and a package against it

corvane-publish COMMAND --help tells the options of one. Exit code: 0 done, 1 failed or not verified,
2 wrong command line.
)"_L1;

/// Options of a command and the streams of its answer.
struct Session
{
    QCommandLineParser &options;
    QTextStream &output;
    QTextStream &errors;

    [[nodiscard]] QString value(QLatin1String option) const { return options.value(option); }
    [[nodiscard]] bool has(QLatin1String option) const { return options.isSet(option); }

    [[nodiscard]] ExitCode fail(const QString &why, ExitCode code = Failed) const
    {
        errors << "corvane-publish: "_L1 << why << Qt::endl;
        return code;
    }
};

/// `progress` for packageDigest: a line for each tenth of a big package.
auto tellProgress(QTextStream &errors)
{
    return [&errors, told = qint64(0)](qint64 done, qint64 all) mutable {
        const qint64 tenths = all > 0 ? done * 10 / all : 10;
        if (all >= bigPackage && tenths > told) {
            told = tenths;
            errors << "hashing: "_L1 << tenths * 10 << " %"_L1 << Qt::endl;
        }
    };
}

// --- keygen

ExitCode keygen(const Session &session)
{
    const PublishKey key = PublishKey::generate();
    QString error;
    if (!key.save(session.value("out"_L1), error))
        return session.fail(error);
    session.output << "private key  "_L1 << session.value("out"_L1) << "\npublic key   "_L1
                   << session.value("out"_L1) << ".pub\nbuild with   -DCORVANE_UPDATE_KEY="_L1
                   << key.publicKey().toHex() << Qt::endl;
    return Done;
}

// --- sign

/// Atomically, so that a server never hands out half a manifest.
bool write(const QString &path, const QByteArray &text, QString &error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit())
        return true;
    error = u"can't write %1: %2"_s.arg(path, file.errorString());
    return false;
}

/// A guardian's reason to refuse the package, be it for Windows or for Linux; empty: it takes it.
QString guardiansProblem(const QString &package, const QString &version)
{
    QString problem = guardian::packageProblem(package, u"corvane.exe"_s, version);
    if (problem.isEmpty() || guardian::packageProblem(package, u"corvane"_s, version).isEmpty())
        return {};
    return problem;
}

ExitCode sign(const Session &session)
{
    UpdateManifest manifest;
    manifest.version = session.value("version"_L1);
    manifest.url = session.value("url"_L1);
    manifest.notes_url = session.value("notes-url"_L1);
    for (const QString &problem : {versionProblem(manifest.version), urlProblem(manifest.url)}) {
        if (!problem.isEmpty())
            return session.fail(problem, Usage);
    }
    if (session.has("notes-url"_L1)) {
        if (const QString problem = urlProblem(manifest.notes_url); !problem.isEmpty())
            return session.fail(problem, Usage);
    }

    QString error;
    const std::optional<PublishKey> key = PublishKey::load(session.value("key"_L1), error);
    if (!key)
        return session.fail(error);
    const PackageDigest digest = packageDigest(session.value("package"_L1), tellProgress(session.errors));
    if (!digest.error.isEmpty())
        return session.fail(digest.error);
    if (const QString problem = guardiansProblem(session.value("package"_L1), manifest.version);
        !problem.isEmpty()) {
        return session.fail(
            u"no guardian would take the package %1: %2"_s.arg(session.value("package"_L1), problem));
    }
    manifest.sha256 = digest.sha256;
    if (!write(session.value("out"_L1), manifestText(signedManifest(manifest, *key)), error))
        return session.fail(error);

    session.output << "version   "_L1 << manifest.version << "\npackage   "_L1 << manifest.url
                   << "\nsha256    "_L1 << manifest.sha256 << "\nmanifest  "_L1 << session.value("out"_L1)
                   << Qt::endl;
    return Done;
}

// --- verify

/// The key that the option names: the digits themselves, or a file that holds them. Empty if it is neither.
QByteArray publicKeyOf(const QString &given)
{
    QByteArray digits = given.toLatin1();
    QFile file(given);
    if (file.open(QIODevice::ReadOnly))
        digits = file.read(1024);
    digits = digits.trimmed();
    const QByteArray key = QByteArray::fromHex(digits);
    return key.size() == updateKeySize && key.toHex() == digits.toLower() ? key : QByteArray();
}

ExitCode verify(const Session &session)
{
    const QByteArray key = publicKeyOf(session.value("public-key"_L1));
    if (!key.isEmpty() && isWeakUpdateKey(key))
        return session.fail(
            u"“%1” is a weak key, under which everybody can sign"_s.arg(session.value("public-key"_L1)));
    if (key.isEmpty())
        return session.fail(u"“%1” is no public key: 64 hexadecimal digits, or a file that holds them"_s.arg(
                                session.value("public-key"_L1)),
                            Usage);

    QFile file(session.value("manifest"_L1));
    if (!file.open(QIODevice::ReadOnly))
        return session.fail(u"can't read %1: %2"_s.arg(file.fileName(), file.errorString()));
    const UpdateManifest manifest = parseManifest(file.readAll(), platformKey);
    if (!manifest.valid)
        return session.fail(u"%1 is no manifest: %2"_s.arg(file.fileName(), manifest.error));
    if (!manifest.hasPackage)
        return session.fail(u"%1 names no package for %2"_s.arg(file.fileName(), platformKey));
    if (!manifestIsSigned(manifest, key))
        return session.fail(u"%1 doesn't bear the signature of this key"_s.arg(file.fileName()));
    session.output << "signature  right: version "_L1 << manifest.version << ", "_L1 << manifest.url
                   << Qt::endl;

    if (!session.has("package"_L1))
        return Done;
    const PackageDigest digest = packageDigest(session.value("package"_L1), tellProgress(session.errors));
    if (!digest.error.isEmpty())
        return session.fail(digest.error);
    if (digest.sha256.compare(manifest.sha256, Qt::CaseInsensitive) != 0)
        return session.fail(u"%1 isn't the package of the manifest: its sha256 is %2"_s.arg(
            session.value("package"_L1), digest.sha256));
    session.output << "package    right: sha256 "_L1 << digest.sha256 << Qt::endl;
    return Done;
}

// --- the command line

struct Option
{
    const char *name;
    const char *placeholder;
    const char *description;
    bool required = true;
};

struct Command
{
    const char *name;
    const char *description;
    ExitCode (*run)(const Session &);
    QList<Option> options;
};

const QList<Command> &commands()
{
    static const QList<Command> all{
        {"keygen",
         "Makes a key pair: the private key in FILE, readable by its owner alone, the public one in "
         "FILE.pub. "
         "Existing files are never overwritten.",
         &keygen,
         {{"out", "FILE", "where the private key goes"}}},
        {"sign",
         "Writes the manifest that announces a package, signed. The package is judged by the guardian's "
         "rules first: "
         "what none would unpack isn't signed.",
         &sign,
         {{"key", "FILE", "the private key that keygen made"},
          {"version", "VERSION", "version of the program in the package, as 1.2.0"},
          {"url", "URL", "where programs fetch the package"},
          {"package", "FILE", "the package itself, a zip of what goes into the installation directory"},
          {"notes-url", "URL", "a page about this version", false},
          {"out", "FILE", "the manifest, by custom latest.json"}}},
        {"verify",
         "Checks the signature of a manifest and, if one is given, a package against its digest.",
         &verify,
         {{"public-key", "KEY", "64 hexadecimal digits, or a file that holds them"},
          {"manifest", "FILE", "the manifest"},
          {"package", "FILE", "the package", false}}},
    };
    return all;
}

} // namespace

ExitCode run(const QStringList &arguments, QTextStream &output, QTextStream &errors)
{
    const QString word = arguments.value(1);
    if (word == "--help"_L1 || word == "-h"_L1 || word == "help"_L1) {
        output << overview << Qt::flush;
        return Done;
    }
    for (const Command &command : commands()) {
        if (word != QLatin1String(command.name))
            continue;
        QCommandLineParser parser;
        parser.setApplicationDescription(QString::fromLatin1(command.description));
        parser.addPositionalArgument(word, QString(), word);
        for (const Option &option : command.options) {
            QString description = QString::fromLatin1(option.description);
            if (!option.required)
                description += " (may be left out)"_L1;
            parser.addOption(QCommandLineOption(QString::fromLatin1(option.name), description,
                                                QString::fromLatin1(option.placeholder)));
        }
        const QCommandLineOption help({u"h"_s, u"help"_s}, u"shows this"_s);
        parser.addOption(help);

        const Session session{parser, output, errors};
        if (!parser.parse(arguments))
            return session.fail(parser.errorText(), Usage);
        if (parser.isSet(help)) {
            output << parser.helpText() << Qt::flush;
            return Done;
        }
        if (parser.positionalArguments().size() != 1)
            return session.fail(u"what is “%1” for?"_s.arg(parser.positionalArguments().value(1)), Usage);
        for (const Option &option : command.options) {
            if (option.required && parser.value(QLatin1String(option.name)).isEmpty())
                return session.fail(
                    u"--%1 is missing; see corvane-publish %2 --help"_s.arg(QLatin1String(option.name), word),
                    Usage);
        }
        return command.run(session);
    }
    errors << overview << Qt::flush;
    return Usage;
}

} // namespace corvane::publish
