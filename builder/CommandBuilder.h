#pragma once

#include "engine/model/PipelineConfig.h"

/// Turns one pipeline's record into ffmpeg's argument list. Free functions without state or side effect: they
/// ask nothing of the machine, and the same record always gives the same list.
///
/// Each element of a list is one element of the child's argument vector, handed over as it stands: nothing is
/// quoted or escaped for a shell. Nothing is validated either; what makes no sense is ffmpeg's to refuse.
/// Flags are those of the ffmpeg documentation, https://ffmpeg.org/ffmpeg-all.html.
namespace corvane::CommandBuilder {

/// The whole argument list, without the program name. `ffmpegHasSrt` says that this ffmpeg sends SRT itself
/// and changes nothing but the output segment. Throws std::runtime_error with a UTF-8 text if no output is
/// enabled.
[[nodiscard]] QStringList build(const PipelineConfig &config, bool ffmpegHasSrt);

/// The video input. A kind outside the table gives the test pattern.
[[nodiscard]] QStringList inputArgs(const SourceConfig &source);

/// The second input, for audio: Dante where enabled, silence for the test pattern, else nothing.
[[nodiscard]] QStringList audioInputArgs(const SourceConfig &source);

/// Text of the "-vf" argument; empty for no filter. `source` isn't read.
[[nodiscard]] QString scaleFilter(const SourceConfig &source, const ScalerConfig &scaler);

/// Rate control and family flags for constant-bit-rate live work. `fps` in frames per second; a value below 1
/// counts as 30.
[[nodiscard]] QStringList videoEncoderArgs(const EncoderConfig &encoder, int fps);

/// Audio flags, or nothing if there is no audio input of our own.
[[nodiscard]] QStringList audioEncoderArgs(const EncoderConfig &encoder, bool hasAudio);

/// Format and target of the only output.
[[nodiscard]] QStringList singleOutputArgs(const OutputConfig &output, bool ffmpegHasSrt);

/// The tee muxer's form for several outputs; disabled ones are left out. Targets are not escaped for the tee
/// syntax.
[[nodiscard]] QStringList teeOutputArgs(const QList<OutputConfig> &outputs, bool ffmpegHasSrt);

/// The output's URL with its SRT parameters, in the order latency, passphrase, pbkeylen, streamid, mode,
/// groupconnect. The latency is in milliseconds; only the stream id is percent-encoded.
[[nodiscard]] QString srtUrl(const OutputConfig &output);

} // namespace corvane::CommandBuilder
