#include "CAsignals.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "config/CAcfg.h"

namespace {

constexpr std::array kEndSignals = {SIGTERM, SIGINT};

// The signals that the master thread takes. Empty before CABlockSignals().
sigset_t &taken = *new sigset_t{};

bool isIgnored(int signal)
{
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
}

void endCleanly(int /*signal*/)
{
    CAPutBackReport();
    _exit(0);
}

// For a second signal: as the signal itself would.
void endAtOnce(int signal)
{
    CAPutBackReport();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void handleEndSignals(void (*handler)(int))
{
    for (const int signal : kEndSignals) {
        if (!isIgnored(signal)) {
            struct sigaction action {};
            action.sa_handler = handler;
            action.sa_flags = SA_NODEFER;
            sigemptyset(&action.sa_mask);
            sigaction(signal, &action, nullptr);
        }
    }
}

// From now on a signal ends the process at once, in whatever state it is.
void letSignalsEndTheProcess()
{
    handleEndSignals(endAtOnce);
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
    sigset_t progress;
    sigemptyset(&progress);
    sigaddset(&progress, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &progress, nullptr);
}

void CABlockSignals(bool reopens)
{
    sigemptyset(&taken);
    sigaddset(&taken, SIGUSR1);
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
    switch (sigtimedwait(&taken, nullptr, &wait)) {
    case SIGUSR1: return CASignal::Progress;
    case SIGHUP: return CASignal::Reopen;
    case SIGTERM:
    case SIGINT: letSignalsEndTheProcess(); return CASignal::End;
    default: return CASignal::None;
    }
}
