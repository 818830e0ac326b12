// corvane-air: switches the companion on and off, and says what is there.

#include "tools/air/AirSwitch.h"
#include "tools/air/Places.h"

#include <string_view>

namespace fs = std::filesystem;
using corvane::air::AirSwitch;

namespace {

constexpr int refused = 1;
constexpr int misused = 2;
constexpr int isOff = 3;

constexpr auto help = R"(corvane-air on|off|status [pasta do corvane]

  on      põe o programa auxiliar ao lado do corvane: a linha volta sozinha depois de uma queda,
          várias saídas numa stream, gravação ao lado da transmissão
  off     tira o programa auxiliar
  status  diz o que está lá e qual ffmpeg é chamado; código 0: ligado, 3: desligado

Sem a pasta vale a mais próxima acima desta ferramenta que tem um corvane.
)";

int print(const AirSwitch::Answer &answer, int otherwise)
{
    corvane::air::printText(answer.text, !answer.done && otherwise != isOff);
    return answer.done ? 0 : otherwise;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (argc > 3 || (command != "on" && command != "off" && command != "status")) {
        const bool asked = command == "help" || command == "--help" || command == "-h";
        corvane::air::printText(help, !asked);
        return asked ? 0 : misused;
    }
    const fs::path folder = corvane::air::ownFolder();
    const fs::path programFolder = argc > 2 ? fs::path(argv[2]) : corvane::air::programFolderAbove(folder);
    if (programFolder.empty()) {
        corvane::air::printText("não há corvane acima desta ferramenta: diga a pasta dele\n", true);
        return refused;
    }
    const AirSwitch airSwitch(folder / corvane::air::companionFile, programFolder);
    if (command == "on")
        return print(airSwitch.on(), refused);
    if (command == "off")
        return print(airSwitch.off(), refused);
    return print(airSwitch.status(), isOff);
}
