#include "tools/air/AirSwitch.h"

#include "tools/air/NextFfmpeg.h"
#include "tools/air/Places.h"
#include "tools/air/ProgramOutput.h"
#include "tools/air/RecordingFile.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace corvane::air {

namespace fs = std::filesystem;

namespace {

// More than any companion has, and less than any ffmpeg: what is larger needn't be read.
constexpr std::uintmax_t mostBytes = 40'000'000;

bool isThere(const fs::path &file)
{
    std::error_code none;
    return fs::exists(fs::symlink_status(file, none));
}

bool holdsProgram(const fs::path &folder)
{
    std::error_code none;
    return fs::is_regular_file(folder / programFile, none);
}

std::string restart()
{
    return "Feche o CORVANE e abra-o de novo: as ferramentas são procuradas só no início.\n";
}

/// Question to ffmpeg about a muxer, and a word of the reply that it needs.
struct Need
{
    const char *muxer;
    const char *word;
};

/// The ffmpeg that the companion will call, which isn't the companion even if that is on PATH.
std::string realFfmpeg()
{
    return nextFfmpeg([](const std::string &file) { return isCompanion(file); });
}

constexpr Need needs[] = {{"fifo", "attempt_recovery"},
                          {"fifo", "recover_any_error"},
                          {"tee", "use_fifo"},
                          {"hash", "hash"},
                          {"matroska", "cluster_time_limit"}};

} // namespace

bool isCompanion(const fs::path &file)
{
    std::error_code none;
    if (fs::file_size(file, none) > mostBytes) // of a file that isn't there it is the largest number
        return false;
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    // Name of the variable by which companions recognise each other.
    return bytes.find("CORVANE_AIR_PASSED") != std::string::npos;
}

fs::path programFolderAbove(const fs::path &folder)
{
    for (fs::path above = folder.parent_path(); !above.empty(); above = above.parent_path()) {
        for (const fs::path &place : {above, above / "corvane"}) { // of a build; of a package
            if (holdsProgram(place))
                return place;
        }
        if (above == above.root_path())
            break;
    }
    return {};
}

AirSwitch::AirSwitch(fs::path companion, const fs::path &programFolder)
    : m_companion(std::move(companion))
    , m_place((programFolder / "ffmpeg").make_preferred())
{
}

std::string AirSwitch::whyNot() const
{
    if (!isCompanion(m_companion))
        return "o programa auxiliar não está em " + m_companion.string();
    if (!holdsProgram(m_place.parent_path()))
        return "não há corvane em " + m_place.parent_path().string();
    if (isThere(m_place) && !isCompanion(m_place))
        return "já existe um outro ffmpeg em " + m_place.string();
    const std::string real = realFfmpeg();
    if (real.empty())
        return "não há ffmpeg no PATH";
    for (const Need &need : needs) {
        if (programOutput({real, "-hide_banner", "-h", std::string("muxer=") + need.muxer}).find(need.word) ==
            std::string::npos)
            return real + " é antigo demais: falta " + need.word + " (muxer " + need.muxer + ")";
    }
    return {};
}

AirSwitch::Answer AirSwitch::on() const
{
    if (const std::string why = whyNot(); !why.empty())
        return {false, "não foi ligado: " + why + '\n'};
    // A companion that runs keeps its file; the new one takes its name.
    const fs::path fresh = m_place.string() + ".novo";
    std::error_code failure;
    fs::copy_file(m_companion, fresh, fs::copy_options::overwrite_existing, failure);
    if (!failure)
        fs::rename(fresh, m_place, failure);
    if (failure) {
        std::error_code none;
        fs::remove(fresh, none);
        return {false, "não foi ligado: " + m_place.string() + ": " + failure.message() + hintOfUse + '\n'};
    }
    return {true, "ligado: " + m_place.string() + "\nffmpeg: " + realFfmpeg() +
                      "\nUma atualização do CORVANE o retira: ligue-o de novo depois dela.\n" + restart()};
}

AirSwitch::Answer AirSwitch::off() const
{
    if (!isThere(m_place))
        return {true, "desligado: não há nada em " + m_place.string() + '\n'};
    if (!isCompanion(m_place))
        return {false, "não foi desligado: " + m_place.string() + " é um outro ffmpeg\n"};
    std::error_code failure;
    fs::remove(m_place, failure);
    if (failure)
        return {false,
                "não foi desligado: " + m_place.string() + ": " + failure.message() + hintOfUse + '\n'};
    return {true, "desligado: " + m_place.string() + " foi removido\n" + restart()};
}

AirSwitch::Answer AirSwitch::status() const
{
    const bool there = isThere(m_place) && isCompanion(m_place);
    std::string text = there ? "ligado: " + m_place.string() + '\n' : std::string("desligado\n");
    if (!there && isThere(m_place))
        text += "em " + m_place.string() + " há um outro ffmpeg\n";
    const std::string real = realFfmpeg();
    text += "ffmpeg: " + (real.empty() ? std::string("não há nenhum no PATH") : real) + '\n';
    const fs::path recordings = m_place.parent_path() / "recordings";
    const std::string folder = directoryNamedIn(recordings.string());
    text += folder.empty() ? "gravações: nenhuma (" + recordings.string() + " não indica nenhuma pasta)\n"
                           : "gravações: " + folder + '\n';
    return {there, text};
}

} // namespace corvane::air
