#include "engine/PipelineStore.h"
#include "tests/support/Runner.h"
#include "tests/support/SettingsSandbox.h"

#include <QCoreApplication>
#include <QMap>
#include <QTest>

#include <vector>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// An open key of the registry, below the current user's settings.
class Key
{
public:
    explicit Key(const QString &path)
    {
        RegCreateKeyExW(HKEY_CURRENT_USER, reinterpret_cast<LPCWSTR>(path.utf16()), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &m_key, nullptr);
    }
    ~Key() { RegCloseKey(m_key); }
    Q_DISABLE_COPY_MOVE(Key)

    /// Every value as "<type> <content>", by its name.
    [[nodiscard]] QMap<QString, QString> values() const
    {
        QMap<QString, QString> found;
        wchar_t name[256];
        std::vector<wchar_t> content(4096);
        for (DWORD i = 0;; ++i) {
            DWORD nameLength = 256;
            auto size = static_cast<DWORD>(content.size() * sizeof(wchar_t));
            DWORD type = 0;
            if (RegEnumValueW(m_key, i, name, &nameLength, nullptr, &type,
                              reinterpret_cast<BYTE *>(content.data()), &size) != ERROR_SUCCESS)
                return found;
            found.insert(QString::fromWCharArray(name, static_cast<qsizetype>(nameLength)),
                         text(type, content, size));
        }
    }

    void setText(const QString &name, const QString &text) const
    {
        RegSetValueExW(m_key, reinterpret_cast<LPCWSTR>(name.utf16()), 0, REG_SZ,
                       reinterpret_cast<const BYTE *>(text.utf16()),
                       static_cast<DWORD>((text.size() + 1) * qsizetype(sizeof(wchar_t))));
    }

    void setNumber(const QString &name, DWORD number) const
    {
        RegSetValueExW(m_key, reinterpret_cast<LPCWSTR>(name.utf16()), 0, REG_DWORD,
                       reinterpret_cast<const BYTE *>(&number), sizeof number);
    }

private:
    static QString text(DWORD type, const std::vector<wchar_t> &content, DWORD size)
    {
        switch (type) {
        case REG_SZ:
            return "text "_L1 + QString::fromWCharArray(content.data());
        case REG_DWORD:
            return "32 bits "_L1 + QString::number(*reinterpret_cast<const quint32 *>(content.data()));
        case REG_QWORD:
            return "64 bits "_L1 + QString::number(*reinterpret_cast<const quint64 *>(content.data()));
        default:
            return u"type %1, %2 bytes"_s.arg(type).arg(size);
        }
    }

    HKEY m_key = nullptr;
};

} // namespace

/// Place of the settings on Windows: the registry, below the organization and the program.
class tst_PipelineStore_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void keepsRowsBelowTheProgram();
    void readsWhatIsThere();
    void readsWhatOthersHaveChanged();

private:
    [[nodiscard]] QString key(const QString &below) const
    {
        return u"Software\\%1\\%2\\%3"_s.arg(QCoreApplication::organizationName(),
                                             QCoreApplication::applicationName(), below);
    }

    std::unique_ptr<SettingsSandbox> m_settings;
};

void tst_PipelineStore_win::init()
{
    m_settings.reset();
    m_settings = std::make_unique<SettingsSandbox>();
}

void tst_PipelineStore_win::keepsRowsBelowTheProgram()
{
    PipelineConfig first;
    first.id = u"0badcafe"_s;
    first.name = u"Câmera 1 – 日本 \"a\\b\""_s;
    first.source.kind = SourceKind::File;
    first.source.uri = u"C:\\Vídeos\\a b.mp4"_s;
    first.encoder.bitrate = 2500;
    first.encoder.hw = HwAccel::Nvenc;
    first.outputs = QList<OutputConfig>(3);
    first.outputs[0].url = u"rtmp://host/live/KEY"_s;
    first.outputs[0].passphrase = u"secret-passphrase"_s;
    PipelineConfig second;
    second.id = u"00000002"_s;
    PipelineStore::save({first, second});

    // 32 or 64 bits, depending on the version of Qt.
    QCOMPARE(Key(key(u"pipelines"_s)).values().value(u"size"_s).section(u' ', -1), u"2"_s);
    QCOMPARE(Key(key(u"pipelines\\1"_s)).values(), (QMap<QString, QString>{
                                                       {u"id"_s, u"text 0badcafe"_s},
                                                       {u"name"_s, u"text Câmera 1 – 日本 \"a\\b\""_s},
                                                       {u"sourceKind"_s, u"32 bits 5"_s},
                                                       {u"sourceUri"_s, u"text C:\\Vídeos\\a b.mp4"_s},
                                                       {u"bitrate"_s, u"32 bits 2500"_s},
                                                       {u"hw"_s, u"32 bits 2"_s},
                                                       {u"outputs"_s, u"64 bits 3"_s},
                                                   }));
    QCOMPARE(Key(key(u"pipelines\\2"_s)).values().value(u"id"_s), u"text 00000002"_s);
}

void tst_PipelineStore_win::readsWhatIsThere()
{
    Key(key(u"pipelines"_s)).setNumber(u"size"_s, 2);
    const Key row(key(u"pipelines\\1"_s));
    row.setText(u"id"_s, u"0badcafe"_s);
    row.setText(u"name"_s, u"Câmera 1"_s);
    row.setNumber(u"sourceKind"_s, 5);
    row.setText(u"bitrate"_s, u"abc"_s);

    const QList<PipelineConfig> configs = PipelineStore::load();
    QCOMPARE(configs.size(), 2);
    QCOMPARE(configs.first().id, u"0badcafe"_s);
    QCOMPARE(configs.first().name, u"Câmera 1"_s);
    QCOMPARE(configs.first().source.kind, 5);
    QCOMPARE(configs.first().encoder.bitrate, 0);
    QCOMPARE(configs.first().encoder.hw, PipelineConfig().encoder.hw);
    QCOMPARE(configs.last().id, QString());
}

void tst_PipelineStore_win::readsWhatOthersHaveChanged()
{
    PipelineConfig config;
    config.id = u"0badcafe"_s;
    PipelineStore::save({config});
    Key(key(u"pipelines\\1"_s)).setText(u"name"_s, u"changed"_s);
    QCOMPARE(PipelineStore::load().first().name, u"changed"_s);
}

CORVANE_TEST(tst_PipelineStore_win, QCoreApplication)
#include "tst_PipelineStore_win.moc"
