#include "tests/children/CrasherHooks.h"

#include <atomic>
#include <csignal>
#include <cstdlib>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

// The C library's own heap behind its public names, which this file defines.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): their names are the library's
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void __libc_free(void *block);
// NOLINTEND(bugprone-reserved-identifier)
}

namespace corvane::crasher {

namespace {

pthread_mutex_t heap = PTHREAD_MUTEX_INITIALIZER;
std::atomic<bool> watching = false;
pthread_t watched;

bool piecesMarked = false;
int pieces = 0;
int interruptedPiece = 0;
void (*interruption)() = nullptr;

long rawWrite(int file, const void *bytes, std::size_t size)
{
    return syscall(SYS_write, file, bytes, size);
}

class HeapLock
{
public:
    HeapLock()
    {
        if (watching && pthread_equal(pthread_self(), watched) != 0)
            rawWrite(STDERR_FILENO, "heap used\n", 10);
        pthread_mutex_lock(&heap);
    }
    ~HeapLock() { pthread_mutex_unlock(&heap); }
    HeapLock(const HeapLock &) = delete;
    HeapLock &operator=(const HeapLock &) = delete;
};

} // namespace

void limitResources()
{
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    rlimit stack{};
    getrlimit(RLIMIT_STACK, &stack);
    stack.rlim_cur = 1U << 20U;
    setrlimit(RLIMIT_STACK, &stack);
}

void writeToNull()
{
    volatile int *volatile nowhere = nullptr; // both, or an optimizer removes it as unobservable
    *nowhere = 1; // NOLINT(clang-analyzer-core.NullDereference): that is the death
}

void divideByZero()
{
    volatile int zero = 0;
    [[maybe_unused]] volatile int quotient = 1 / zero; // NOLINT(clang-analyzer-core.DivideZero)
    std::raise(SIGFPE);                                // not every processor minds
}

void runIllegalInstruction()
{
#if defined(__x86_64__) || defined(__i386__)
    __asm__ volatile("ud2");
#elif defined(__aarch64__)
    __asm__ volatile("udf #0");
#else
    std::raise(SIGILL);
#endif
}

void dieLikeHere(std::string_view /*death*/) {}

void lockHeap()
{
    pthread_mutex_lock(&heap);
}

void watchHeap()
{
    watched = pthread_self();
    watching = true;
}

void markPieces()
{
    piecesMarked = true;
}

void callBeforePiece(int number, void (*function)())
{
    interruptedPiece = number;
    interruption = function;
}

} // namespace corvane::crasher

using namespace corvane::crasher;

extern "C" {

void *malloc(std::size_t size) noexcept
{
    const HeapLock lock;
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) noexcept
{
    const HeapLock lock;
    return __libc_calloc(count, size);
}

void *realloc(void *block, std::size_t size) noexcept
{
    const HeapLock lock;
    return __libc_realloc(block, size);
}

void free(void *block) noexcept
{
    const HeapLock lock;
    __libc_free(block);
}

ssize_t write(int file, const void *bytes, std::size_t size)
{
    if (file <= STDERR_FILENO || !watching)
        return rawWrite(file, bytes, size);
    if (++pieces == interruptedPiece)
        interruption();
    const long written = rawWrite(file, bytes, size);
    if (piecesMarked)
        rawWrite(file, "|", 1);
    return written;
}
}
