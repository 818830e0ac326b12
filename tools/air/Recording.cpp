#include "tools/air/Recording.h"

#include "tools/air/RecordingFile.h"

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

namespace corvane::air {

namespace {

constexpr std::chrono::seconds betweenSyncs{2}; // what a power cut may cost
constexpr auto tooSlowWords = "o disco não acompanha";

} // namespace

struct Recording::Shared
{
    std::function<void(const std::string &)> say;
    std::mutex mutex;
    std::condition_variable changed;
    std::string waiting;
    std::string path;
    bool noMore = false;     ///< nothing will be added
    bool ended = false;      ///< by a failure, or as there is none
    std::promise<void> left; ///< of the writer

    /// Without one nothing may be wanted.
    bool hasDirectory()
    {
        const std::lock_guard lock(mutex);
        return !path.empty();
    }

    /// The recording is over; `why` is said unless another reason was before.
    void fail(const std::string &why)
    {
        std::string line;
        {
            const std::lock_guard lock(mutex);
            if (!std::exchange(ended, true))
                line = "[air] gravação interrompida (" + path + "): " + why + " — a transmissão continua\n";
        }
        if (!line.empty())
            say(line);
    }
};

Recording::Recording(const std::string &setting, std::function<void(const std::string &)> say)
    : m_shared(std::make_shared<Shared>())
{
    m_shared->say = std::move(say);
    std::thread([shared = m_shared, setting] {
        write(shared, setting);
        shared->left.set_value();
    }).detach();
}

void Recording::write(const std::shared_ptr<Shared> &shared, const std::string &setting)
{
    const std::string directory = directoryNamedIn(setting);
    RecordingFile file;
    {
        const std::lock_guard lock(shared->mutex);
        shared->path = directory;
        shared->ended = directory.empty();
    }
    if (directory.empty())
        return;
    if (const std::string why = file.create(directory); !why.empty()) {
        shared->fail(why);
        return;
    }
    shared->say("[air] gravando em " + file.path() + '\n');

    std::string bytes;
    auto synced = std::chrono::steady_clock::now();
    for (bool last = false; !last;) {
        {
            std::unique_lock lock(shared->mutex);
            shared->path = file.path();
            shared->changed.wait_for(lock, betweenSyncs, [&] {
                return !shared->waiting.empty() || shared->noMore || shared->ended;
            });
            if (shared->ended)
                return;
            bytes = std::exchange(shared->waiting, {});
            last = shared->noMore;
        }
        std::string why = file.append(bytes);
        const auto now = std::chrono::steady_clock::now();
        if (why.empty() && (last || now - synced >= betweenSyncs)) {
            why = file.sync();
            synced = now;
        }
        if (!why.empty()) {
            shared->fail(why);
            return;
        }
    }
}

void Recording::add(std::string_view bytes)
{
    bool tooSlow = false;
    {
        const std::lock_guard lock(m_shared->mutex);
        if (m_shared->ended)
            return;
        tooSlow = m_shared->waiting.size() + bytes.size() > mostWaiting;
        if (!tooSlow)
            m_shared->waiting += bytes;
    }
    if (tooSlow)
        m_shared->fail(tooSlowWords);
    m_shared->changed.notify_one();
}

void Recording::finish(int patienceMs)
{
    {
        const std::lock_guard lock(m_shared->mutex);
        m_shared->noMore = true;
    }
    m_shared->changed.notify_one();
    const auto left = m_shared->left.get_future().wait_for(std::chrono::milliseconds(patienceMs));
    if (left != std::future_status::ready && m_shared->hasDirectory())
        m_shared->fail(tooSlowWords);
}

} // namespace corvane::air
