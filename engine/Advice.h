#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// Rules of thumb for live encoding, as pure look-ups: they advise the operator and change nothing.
namespace corvane {

/// Advised video bit rate for a picture of `width` by `height` pixels at `fps` frames per second. Keys:
/// "recommended", "min", "max", "bufsize", "audioBitrate" (kbit/s), "keyint" (frames), "platforms" (limits of
/// well-known services, each with "maxBitrate" and "maxRes"). Every size above 1080p counts as 4K.
[[nodiscard]] QVariantMap bitrateAdvice(int width, int height, int fps);

/// Best encoder among `availableEncoders`, as ffmpeg names it. Keys: "encoder", "hwLabel", "presetHint",
/// "hevcAvailable", "av1Available" and, where these are true, "hevcEncoder", "hevcNote", "av1Encoder",
/// "av1Note"; "bitrate" is the whole bitrateAdvice() of the three numbers; "zeroLatency", "bFrames", "tip"
/// are always the same.
[[nodiscard]] QVariantMap encoderAdvice(const QStringList &availableEncoders, int width, int height, int fps);

/// SRT parameters by `scenario` ("studio", "internet", "irl", "bonding", "relay"; anything else is generic):
/// "latency" (ms), "oheadbw" (percent), "description" and the constant "maxbw", "pbkeylen", "passphrase",
/// "streamid", "rcvbuf", "sndbuf" (bytes).
[[nodiscard]] QVariantMap srtParamAdvice(const QString &scenario);

} // namespace corvane
