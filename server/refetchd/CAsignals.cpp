#include "CAsignals.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <ctime>

#include "base/CAoutput.h"
#include "config/CAcfg.h"
#include "fetch/CAwake.h"

namespace {

constexpr std::array kEndSignals = {SIGTERM, SIGINT};

// The signals that the master thread takes; set by CABlockSignals().
sigset_t taken;

bool isIgnored(int signal)
{
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
}

void endCleanly(int /*signal*/)
{
    CAPutBackReport();
    CATellUnwritten();
    _exit(0);
}

// As the signal itself would.
void endAtOnce(int signal)
{
    CAPutBackReport();
    CATellUnwritten();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// When the first signal was taken, in milliseconds of the monotonic clock.
std::int64_t firstEnd = 0;

std::int64_t monotonicMilliseconds()
{
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// For a second signal. Those that follow at once are the same request: timeout(1), for example,
// signals its child and then their process group.
void endWhenAskedTwice(int signal)
{
    constexpr std::int64_t kSameRequest = 300;
    if (monotonicMilliseconds() - firstEnd > kSameRequest) {
        endAtOnce(signal);
    }
}

void handle(int signal, void (*handler)(int))
{
    if (!isIgnored(signal)) {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = SA_NODEFER | SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

void handleEndSignals(void (*handler)(int))
{
    for (const int signal : kEndSignals) {
        handle(signal, handler);
    }
}

// From now on another signal ends the process at once, in whatever state it is.
void letSignalsEndTheProcess()
{
    firstEnd = monotonicMilliseconds();
    handleEndSignals(endWhenAskedTwice);
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : kEndSignals) {
        sigaddset(&ending, signal);
        sigdelset(&taken, signal);
    }
    pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
}

}  // namespace

void CAEndOnSignals()
{
    handleEndSignals(endCleanly);
    handle(SIGHUP, endAtOnce);
    sigset_t progress;
    sigemptyset(&progress);
    sigaddset(&progress, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &progress, nullptr);
}

void CABlockSignals(bool reopens)
{
    sigemptyset(&taken);
    sigaddset(&taken, SIGUSR1);
    sigaddset(&taken, CAWakeSignal());
    for (const int signal : kEndSignals) {
        if (!isIgnored(signal)) {
            sigaddset(&taken, signal);
        }
    }
    if (reopens && !isIgnored(SIGHUP)) {
        sigaddset(&taken, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
}

CASignal CANextSignal(std::int64_t milliseconds)
{
    const std::timespec wait{.tv_sec = milliseconds / 1000,
                             .tv_nsec = milliseconds % 1000 * 1000000};
    const int signal = sigtimedwait(&taken, nullptr, &wait);
    if (signal == CAWakeSignal()) {
        return CASignal::Wake;
    }
    switch (signal) {
    case SIGUSR1: return CASignal::Progress;
    case SIGHUP: return CASignal::Reopen;
    case SIGTERM:
    case SIGINT: letSignalsEndTheProcess(); return CASignal::End;
    default: return CASignal::None;
    }
}
