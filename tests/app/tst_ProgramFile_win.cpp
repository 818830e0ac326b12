#include "tests/support/Runner.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

#include <memory>
#include <vector>

#include <windows.h>

using namespace Qt::StringLiterals;

namespace {

struct Freed
{
    void operator()(HMODULE module) const { FreeLibrary(module); }
};
using Module = std::unique_ptr<std::remove_pointer_t<HMODULE>, Freed>;

QByteArray resource(HMODULE module, LPCWSTR type, int id)
{
    const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(id), type);
    if (!found)
        return {};
    return {static_cast<const char *>(LockResource(LoadResource(module, found))),
            static_cast<qsizetype>(SizeofResource(module, found))};
}

BOOL CALLBACK addName(HMODULE /*module*/, LPCWSTR /*type*/, LPWSTR name, LONG_PTR names)
{
    reinterpret_cast<std::vector<LPWSTR> *>(names)->push_back(name);
    return TRUE;
}

qsizetype countOf(HMODULE module, LPCWSTR type)
{
    std::vector<LPWSTR> names;
    EnumResourceNamesW(module, type, addName, reinterpret_cast<LONG_PTR>(&names));
    return static_cast<qsizetype>(names.size());
}

std::vector<std::byte> versionBlock(const QString &file)
{
    const auto *path = reinterpret_cast<LPCWSTR>(file.utf16());
    DWORD ignored = 0;
    std::vector<std::byte> block(GetFileVersionInfoSizeW(path, &ignored));
    if (!block.empty() && !GetFileVersionInfoW(path, 0, static_cast<DWORD>(block.size()), block.data()))
        block.clear();
    return block;
}

QString versionText(const QString &file, const QString &key)
{
    const std::vector<std::byte> block = versionBlock(file);
    if (block.empty())
        return {};
    void *text = nullptr;
    UINT length = 0;
    const QString name = u"\\StringFileInfo\\040904B0\\"_s + key;
    if (!VerQueryValueW(block.data(), reinterpret_cast<LPCWSTR>(name.utf16()), &text, &length))
        return {};
    return QString::fromWCharArray(static_cast<const wchar_t *>(text));
}

/// The version that installers compare, "1.2.3.4"; empty if `file` has none.
QString versionNumbers(const QString &file, DWORD VS_FIXEDFILEINFO::*high, DWORD VS_FIXEDFILEINFO::*low)
{
    const std::vector<std::byte> block = versionBlock(file);
    void *found = nullptr;
    UINT length = 0;
    if (block.empty() || !VerQueryValueW(block.data(), L"\\", &found, &length))
        return {};
    const auto *info = static_cast<const VS_FIXEDFILEINFO *>(found);
    return u"%1.%2.%3.%4"_s.arg(HIWORD(info->*high))
        .arg(LOWORD(info->*high))
        .arg(HIWORD(info->*low))
        .arg(LOWORD(info->*low));
}

} // namespace

/// Properties of the program's file that the system reads before it runs: icon, version, manifest, subsystem.
class tst_ProgramFile_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void hasAnIcon();
    void hasAVersion_data();
    void hasAVersion();
    void bearsTheVersionOfItsBuild_data();
    void bearsTheVersionOfItsBuild();
    void asksForWhatItNeeds_data();
    void asksForWhatItNeeds();
    void isAConsoleProgramOf64Bits();
    void narrowTextsAreUtf8();

private:
    const QString m_path = QStringLiteral(CORVANE_PROGRAM);
    Module m_module;
};

void tst_ProgramFile_win::initTestCase()
{
    m_module.reset(LoadLibraryExW(reinterpret_cast<LPCWSTR>(m_path.utf16()), nullptr,
                                  LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    QVERIFY(m_module);
}

void tst_ProgramFile_win::hasAnIcon()
{
    QCOMPARE(countOf(m_module.get(), RT_GROUP_ICON), 1);
    QCOMPARE(countOf(m_module.get(), RT_ICON), 9);
}

void tst_ProgramFile_win::hasAVersion_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("CompanyName") << u"halvorndev"_s;
    QTest::newRow("ProductName") << u"CORVANE"_s;
    QTest::newRow("OriginalFilename") << u"corvane.exe"_s;
}

void tst_ProgramFile_win::hasAVersion()
{
    QTEST(versionText(m_path, QString::fromLatin1(QTest::currentDataTag())), "text");
}

void tst_ProgramFile_win::bearsTheVersionOfItsBuild_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("numbers");

    const QString program = QStringLiteral(CORVANE_BUILD_VERSION);
    if (program == "0.1.0"_L1)
        QTest::newRow("the program") << m_path << program << u"0.1.0.0"_s;
    // Built beside it, as a publisher's next version is.
    QTest::newRow("with a suffix") << QStringLiteral(CORVANE_VERSIONED_PROGRAM) << u"9.8.7-rc.1"_s
                                   << u"9.8.7.0"_s;
}

void tst_ProgramFile_win::bearsTheVersionOfItsBuild()
{
    QFETCH(const QString, file);
    QTEST(versionText(file, u"ProductVersion"_s), "version");
    QTEST(versionText(file, u"FileVersion"_s), "version");
    QTEST(versionNumbers(file, &VS_FIXEDFILEINFO::dwFileVersionMS, &VS_FIXEDFILEINFO::dwFileVersionLS),
          "numbers");
    QTEST(versionNumbers(file, &VS_FIXEDFILEINFO::dwProductVersionMS, &VS_FIXEDFILEINFO::dwProductVersionLS),
          "numbers");
}

void tst_ProgramFile_win::asksForWhatItNeeds_data()
{
    QTest::addColumn<QByteArray>("part");

    QTest::newRow("narrow texts are UTF-8") << QByteArray(">UTF-8</activeCodePage>");
    QTest::newRow("sharp on every monitor") << QByteArray(">PerMonitorV2</dpiAwareness>");
    QTest::newRow("long paths") << QByteArray(">true</longPathAware>");
    QTest::newRow("no more rights than the user's") << QByteArray("level=\"asInvoker\"");
}

void tst_ProgramFile_win::asksForWhatItNeeds()
{
    QFETCH(const QByteArray, part);
    QCOMPARE(resource(m_module.get(), RT_MANIFEST, 1).count(part), 1);
}

void tst_ProgramFile_win::isAConsoleProgramOf64Bits()
{
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray head = file.read(1024);
    IMAGE_DOS_HEADER dos;
    memcpy(&dos, head.constData(), sizeof dos);
    IMAGE_NT_HEADERS64 headers;
    QVERIFY(dos.e_lfanew + qsizetype(sizeof headers) <= head.size());
    memcpy(&headers, head.constData() + dos.e_lfanew, sizeof headers);
    QCOMPARE(headers.FileHeader.Machine, WORD(IMAGE_FILE_MACHINE_AMD64));
    QCOMPARE(headers.OptionalHeader.Subsystem, WORD(IMAGE_SUBSYSTEM_WINDOWS_CUI));
    // The address space layout is random, and data can't be executed.
    QVERIFY(headers.OptionalHeader.DllCharacteristics & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
    QVERIFY(headers.OptionalHeader.DllCharacteristics & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
}

// This test has the program's manifest.
void tst_ProgramFile_win::narrowTextsAreUtf8()
{
    QCOMPARE(GetACP(), UINT(CP_UTF8));
}

CORVANE_TEST(tst_ProgramFile_win, QCoreApplication)
#include "tst_ProgramFile_win.moc"
