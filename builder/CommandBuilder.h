#pragma once

#include "engine/model/PipelineConfig.h"

/// ffmpeg's argument list from one pipeline's record. Free functions without state or side effect: they ask
/// nothing of the machine, and the same record always gives the same list.
///
/// Each element of a list is one element of the child's argument vector: nothing is quoted or escaped for a
/// shell. Nothing is validated either: ffmpeg refuses what makes no sense. The flags are documented at
/// https://ffmpeg.org/ffmpeg-all.html.
namespace corvane::CommandBuilder {

/// The whole argument list, without the program name. `ffmpegHasSrt`: this ffmpeg sends SRT itself; it
/// changes the output segment alone. Throws std::runtime_error with a UTF-8 text if no output is enabled.
[[nodiscard]] QStringList build(const PipelineConfig &config, bool ffmpegHasSrt);

/// The video input. A kind outside the table gives the test pattern.
[[nodiscard]] QStringList inputArgs(const SourceConfig &source);

/// The second input, for audio: Dante where enabled, otherwise silence for the test pattern, otherwise
/// nothing.
[[nodiscard]] QStringList audioInputArgs(const SourceConfig &source);

/// Text of the "-vf" argument; empty for no filter. `source` isn't read.
[[nodiscard]] QString scaleFilter(const SourceConfig &source, const ScalerConfig &scaler);

/// Encoder, rate control and family flags for live work at a constant bit rate. `fps`: frames per second; a
/// value below 1 counts as 30.
[[nodiscard]] QStringList videoEncoderArgs(const EncoderConfig &encoder, int fps);

/// Audio flags; empty without `hasAudio`, which means an audio input of the builder's own.
[[nodiscard]] QStringList audioEncoderArgs(const EncoderConfig &encoder, bool hasAudio);

/// Format and target of the only enabled output.
[[nodiscard]] QStringList singleOutputArgs(const OutputConfig &output, bool ffmpegHasSrt);

/// Form of the tee muxer, for several outputs; disabled ones are left out. Targets are not escaped for the
/// tee syntax.
[[nodiscard]] QStringList teeOutputArgs(const QList<OutputConfig> &outputs, bool ffmpegHasSrt);

/// The output's URL with its SRT parameters, in the order latency, passphrase, pbkeylen, streamid, mode,
/// groupconnect. Only the stream id is percent-encoded. Parameters as in srt-live-transmit's documentation,
/// https://github.com/Haivision/srt/blob/master/docs/apps/srt-live-transmit.md, which counts the latency in
/// milliseconds.
[[nodiscard]] QString srtUrl(const OutputConfig &output);

} // namespace corvane::CommandBuilder
