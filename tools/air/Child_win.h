#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

namespace corvane::air {

/// A handle of the system, closed once.
class Handle
{
public:
    Handle() = default;
    explicit Handle(HANDLE handle)
        : m_handle(handle)
    {
    }
    ~Handle() { close(); }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    Handle(Handle &&) = delete;
    Handle &operator=(Handle &&) = delete;

    [[nodiscard]] HANDLE get() const { return m_handle; }
    [[nodiscard]] bool isOpen() const { return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE; }
    /// Place for a handle that the system is about to write.
    [[nodiscard]] HANDLE *place() { return &m_handle; }

    void reset(HANDLE handle)
    {
        close();
        m_handle = handle;
    }

    void close()
    {
        if (isOpen())
            CloseHandle(m_handle);
        m_handle = nullptr;
    }

private:
    HANDLE m_handle = nullptr;
};

/// Both ends of an anonymous pipe; children get neither until shareWithChildren is called for an end.
struct PipeEnds
{
    Handle from;
    Handle to;

    [[nodiscard]] bool open() { return CreatePipe(from.place(), to.place(), nullptr, 0); }
};

void shareWithChildren(HANDLE handle, bool share);

/// Standard streams of a child; each has to be one that children get.
struct ChildStreams
{
    HANDLE input = nullptr;
    HANDLE output = nullptr;
    HANDLE error = nullptr;
};

/// A program in a job object of its own, so that it and everything that it starts die with this process,
/// however that ends.
class Child
{
public:
    /// Path of the program and its arguments, in UTF-8. False: it couldn't be started, and GetLastError says
    /// why.
    bool start(const std::string &program, const std::vector<std::string> &arguments,
               const ChildStreams &streams);

    /// Waits for its end; returns its exit code, all 32 bits of it.
    [[nodiscard]] int wait() const;

    void kill(int code) const;

private:
    Handle m_job;
    Handle m_process;
};

/// Writes everything, unless nobody listens any more.
void writeAll(HANDLE handle, std::string_view bytes);

} // namespace corvane::air
