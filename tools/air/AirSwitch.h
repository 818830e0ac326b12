#pragma once

#include <filesystem>
#include <string>

namespace corvane::air {

/// The companion beside the program: put there, taken away, looked at. Sentences are for the operator.
class AirSwitch
{
public:
    struct Answer
    {
        bool done = false;
        std::string text; ///< lines, each with its end
    };

    /// `companion` is the file to copy, `programFolder` the folder of the program.
    AirSwitch(std::filesystem::path companion, const std::filesystem::path &programFolder);

    /// Copies the companion, or renews it. Refuses, and changes nothing, without a program in the folder,
    /// beside another ffmpeg, without a real ffmpeg on PATH, with one that lacks what the companion asks of
    /// it, and where the folder can't be written to.
    [[nodiscard]] Answer on() const;

    /// Removes the companion, if it is there. Refuses where the file beside the program isn't a companion.
    [[nodiscard]] Answer off() const;

    /// What is there; done if the companion is in use.
    [[nodiscard]] Answer status() const;

private:
    [[nodiscard]] std::string whyNot() const; ///< reason why it can't be switched on; empty: none

    std::filesystem::path m_companion;
    std::filesystem::path m_place; ///< of the copy beside the program
};

/// True if the file is a companion, of whatever version.
[[nodiscard]] bool isCompanion(const std::filesystem::path &file);

/// Folder of the program for a companion in `folder`: the nearest above it that holds the program; empty if
/// none does.
[[nodiscard]] std::filesystem::path programFolderAbove(const std::filesystem::path &folder);

} // namespace corvane::air
