#!/usr/bin/python3
"""Every text that the operator's manual quotes is one that the program shows, or is listed here as somebody else's.

What stands for anything in a quotation is "…". Texts that the program puts together are listed with their parts.
"""
import pathlib
import re
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ("app", "builder", "engine", "metrics", "ndi", "pipeline", "tools/air", "update")

FFMPEG = {
    "Audio codec … not compatible with flv", "Cannot load libcuda.so.1", "Cannot load nvcuda.dll",
    "Connection refused", "Connection timed out", "Error while opening encoder", "Failed to resolve hostname …",
    "Failed to update header with correct duration", "… filesize", "Max Bitrate must be greater than Target Bitrate",
    "Network is unreachable", "No such file or directory", "Output file #0 does not contain any stream",
    "The encoder 'opus' is experimental", "Unknown encoder '…'", "Unknown input format", "Unrecognized option 'low_delay'",
    "Unknown input format: 'dshow'", "Unknown input format: 'libndi_newtek'", "'decklink'",
    "Video codec hevc not compatible with flv", "failed to set option SRTO_PASSPHRASE",
    "rtmp://…: Input/output error", "srt://…: Input/output error",
}
SYSTEM = {"Editar", "Editar as variáveis de ambiente para sua conta", "variáveis de ambiente", "somente leitura"}
COMPOSED = {
    "(inválido: Pipeline sem saídas habilitadas)": ("(inválido: %1)", "Pipeline sem saídas habilitadas"),
    "1 saída(s)": (" saída(s)",),
    "30fps · 6012kb/s · RTT 0ms": ("fps · ", "kb/s · RTT ", "ms"),
    "Atualizar 0.2.0": ("Atualizar ",),
    "DeckLink: 0 dispositivo(s) (driver/placa ausente?)": ("DeckLink: %1 dispositivo(s) %2",
                                                           "(driver/placa ausente?)"),
    "ERRO: Pipeline sem saídas habilitadas": ("ERRO: ", "Pipeline sem saídas habilitadas"),
    "ERRO: ffmpeg saiu": ("ERRO: ", "ffmpeg saiu (code=%1, %2)"),
    "ERRO: ffmpeg saiu (code=…, crash)": ("ERRO: ", "ffmpeg saiu (code=%1, %2)", "crash"),
    "ERRO: ffmpeg saiu (code=…, erro)": ("ERRO: ", "ffmpeg saiu (code=%1, %2)", "erro"),
    "FATAL: circuit breaker ABERTO: …": ("FATAL: ", "circuit breaker ABERTO: %1"),
    "[srt] MORREU (code=…) — SRT interrompido": ("[srt] ", "MORREU (code=%1, %2) — SRT interrompido"),
    "[srt] errorOccurred=0": ("[srt] ", "errorOccurred=%1"),
    "[srtla-bridge] errorOccurred=0": ("[srtla-bridge] ", "errorOccurred=%1"),
    "[srtla] errorOccurred=0": ("[srtla] ", "errorOccurred=%1"),
    "[srt] srt-live-transmit não encontrado — …": ("[srt] ", "srt-live-transmit não encontrado — "),
    "[srt] srt-live-transmit …": ("[srt] ", "srt-live-transmit"),
    "[srtla] srtla_send não encontrado — …": ("[srtla] ", "srtla_send não encontrado — "),
    "[srtla] srtla_send …": ("[srtla] ", "srtla_send"),
    "[stats] frame=… fps=… bitrate=…": ("[stats] ", "frame=", "fps=", "bitrate="),
    "ffmpeg errorOccurred: 0": ("ffmpeg errorOccurred: %1",),
    "ffmpeg errorOccurred: 1": ("ffmpeg errorOccurred: %1",),
    "ffmpeg -hide_banner …": ("ffmpeg ", "-hide_banner"),
    "ffmpeg=C:/ffmpeg/bin/ffmpeg.exe": ("ffmpeg=%1 ",),
    "ffmpeg=NÃO ENCONTRADO": ("ffmpeg=%1 ", "NÃO ENCONTRADO"),
    "[air] a fonte terminou sem pedido de parada": ("[air] ", "a fonte terminou sem pedido de parada"),
    "[air] destino … de volta após …": ("[air] ", "destino ", " de volta após "),
    "[air] destino … perdido — a codificação continua, reconectando a cada segundo":
        ("[air] ", "destino ", " perdido — a codificação continua, reconectando a cada segundo"),
    "[air] ffmpeg sem progresso há …": ("[air] ", "ffmpeg sem progresso há "),
    "⬇nível 1": ("⬇nível ",),
}


def quoted(manual):
    """The texts in quotation marks, each on one line and as they would be seen."""
    prose = re.sub(r"`[^`]*`", "", manual) # a command's own quotation marks aren't ours
    return {re.sub(r"\s+", " ", text).replace("\\|", "|") for text in re.findall(r'"([^"]+)"', prose)}


def shown(text, sources):
    """Whether the parts of a text between "…" stand in the sources."""
    return all(part.strip() in sources for part in text.split("…") if part.strip())


def main():
    manual = (TREE / "docs/manual.md").read_text(encoding="utf-8")
    files = [file for folder in SOURCES for file in (TREE / folder).rglob("*") if file.suffix in (".cpp", ".qml")]
    sources = "\n".join(file.read_text(encoding="utf-8") for file in files)
    texts = quoted(manual)
    complaints = []
    for text in sorted(texts - FFMPEG - SYSTEM):
        if not all(part in sources for part in COMPOSED.get(text, ())):
            complaints.append(f"the program doesn't make “{text}” any more")
        elif text not in COMPOSED and not shown(text, sources):
            complaints.append(f"the program doesn't show “{text}”")
    complaints += [f"“{text}” isn't quoted in the manual any more" for text in
                   sorted((FFMPEG | SYSTEM | set(COMPOSED)) - texts)]
    print(f"{len(texts)} texts in {len(files)} files", *complaints, sep="\n")
    return 1 if complaints or len(texts) < 100 else 0


sys.exit(main())
