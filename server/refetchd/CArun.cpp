#include "CArun.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "CAsignals.h"
#include "HTInit.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "fetch/CApace.h"
#include "fetch/CAproxyGate.h"
#include "fetch/CAwake.h"
#include "fetch/CAwork.h"
#include "htthread.h"
#include "refetchd.h"
#include "report/CAclosing.h"
#include "report/CAprogress.h"
#include "report/CAresults.h"
#include "report/CAsummary.h"
#include "url/CAURL.h"
#include "url/CAhost.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"
#include "url/CArest.h"

namespace {

// The number of workers; a negative `numclients` counts as 0.
std::int32_t workerCount()
{
    return ac.numClients > 0 ? ac.numClients : 0;
}

int secondsElapsed()
{
    return static_cast<int>(HTUptime() - g_ca_uptimestarted);
}

}  // namespace

void CABeginRunTime()
{
    g_ca_timestarted = HTtime();
    g_ca_uptimestarted = HTUptime();
}

std::int32_t CAStartWorkers()
{
    const std::int32_t count = workerCount();
    std::int32_t started = 0;
    workerThreads = new CAWorkerThread *[static_cast<std::size_t>(count)] {};
    CAWorkerThread::resetCountPerSecond(ac.requestsPerSecond);
    CABeginPace(HTUptimeMillis());
    for (std::int32_t i = 0; i < count; ++i) {
        CATrace("Starting.... client thread #%d.\n", i + 1);
        workerThreads[i] = new CAWorkerThread(i);
        if (workerThreads[i]->start() != 0) {
            ++started;
        } else {
            CATrace("Starting.... client thread #%d could not be started.\n", i + 1);
        }
    }
    return started;
}

namespace {

// The work of all workers since they were started, and how many of them are busy.
CAProgress workDone()
{
    CAProgress work;
    for (std::int32_t i = 0; i < workerCount(); ++i) {
        work.done += workerThreads[i]->getFinished();
        work.succeeded += workerThreads[i]->getSuccesses();
        work.busy += workerThreads[i]->areYouBusy();
    }
    return work;
}

// The work of the runs before this one, and the time of the last line of progress. For the master
// thread only.
CAProgress doneBefore;
CAProgressClock progressClock;

CAProgress progressOfRun()
{
    CAProgress progress = workDone();
    progress.done -= doneBefore.done;
    progress.succeeded -= doneBefore.succeeded;
    progress.queued = urlQueue->getLength() + restingHosts.parked();
    progress.elapsed = secondsElapsed();
    progress.maxRuntime = ac.maxRuntime;
    if (proxyGate.isAway()) {
        progress.proxyAway = static_cast<std::int32_t>(proxyGate.awayMillis() / 1000);
    }
    if (loadPause.isPaused()) {
        progress.paused = static_cast<std::int32_t>(loadPause.millis(HTUptimeMillis()) / 1000);
    }
    return progress;
}

// Writes the line of progress to standard error.
void writeProgress(const CAProgress &progress)
{
    std::array<char, 256> line{};
    CAFormatProgress(line.data(), line.size(), progress);
    std::fputs(line.data(), stderr);
}

// How the runs are counted and ended. For the master thread only.
struct Runs {
    std::int32_t number = 0;  // of the current run, from 1
    std::int32_t all = 0;     // 0: for ever
    bool isOver = false;      // the current run is, and its workers may be gone
    bool isEnding = false;    // a signal made the current run the last one
    bool isCutShort = false;  // and came before the run had ended by itself
    bool areWorkersStopped = false;
    bool saidProxyIsAway = false;
    bool isProxyAway = false;    // when the run ended
    std::int64_t proxyWait = 0;  // milliseconds of the run for which it was away
    std::int64_t loadWait = 0;   // milliseconds of the run for which `maxload` paused it
    CAProgress atEnd;            // the progress when the run ended
};
Runs runs;

// A signal came: nothing more is requested, and no other run follows this one.
void endRuns()
{
    CATrace("Master...... a signal ends the run.\n");
    runs.isEnding = true;
    ac.repeatCount = 1;
    for (std::int32_t i = 0; i < workerCount() && !runs.areWorkersStopped; ++i) {
        workerThreads[i]->stop();
    }
    CAWakeStopped();
}

void obey(CASignal signal)
{
    switch (signal) {
    case CASignal::None:
    case CASignal::Wake: return;
    case CASignal::Progress: return writeProgress(runs.isOver ? runs.atEnd : progressOfRun());
    case CASignal::Reopen: return results.reopen();
    case CASignal::End: return endRuns();
    }
}

using Clock = std::chrono::steady_clock;

Clock::time_point nextPoll()
{
    return Clock::now() + std::chrono::milliseconds(kPollMilliseconds);
}

// Waits until the next poll and obeys the signals that come meanwhile. True when it has come; false
// when a signal ends the run, or when a worker thread wakes the master thread.
bool waitForPoll(Clock::time_point poll)
{
    using std::chrono::milliseconds;
    const bool wasEnding = runs.isEnding;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(poll - Clock::now());
        if (left.count() <= 0) {
            return true;
        }
        const CASignal signal = CANextSignal(left.count());
        obey(signal);
        if (signal == CASignal::Wake || runs.isEnding != wasEnding) {
            return false;
        }
    }
}

bool isAnyWorker(std::int32_t (CAWorkerThread::*state)() const)
{
    for (std::int32_t i = 0; i < workerCount(); ++i) {
        if ((workerThreads[i]->*state)() != 0) {
            return true;
        }
    }
    return false;
}

// Waits until no worker is in this state any more, at most for a polling interval; calls
// `meanwhile` again and again, and obeys the signals that come.
void waitWhileAnyWorker(std::int32_t (CAWorkerThread::*state)() const, void (*meanwhile)())
{
    constexpr std::int64_t kStep = 50;
    const std::int64_t end = HTUptimeMillis() + kPollMilliseconds;
    while (isAnyWorker(state) && HTUptimeMillis() < end) {
        obey(CANextSignal(kStep));
        meanwhile();
    }
}

// Waits until `maxruntime` seconds have passed since the start of the run, before the next one may
// start, or until a signal ends the process. With `wakeclients` short runs without `maxruntime`
// must not follow each other at once: without it, each of them takes a polling interval.
void waitOutRunTime(Clock::time_point firstPoll)
{
    while (!runs.isEnding && secondsElapsed() < ac.maxRuntime) {
        waitForPoll(nextPoll());
    }
    while (ac.wakeClients != 0 && !runs.isEnding && !waitForPoll(firstPoll)) {
    }
}

// Queues the seeds again. All work of the workers from now on counts for the next run.
void seedAgain()
{
    doneBefore = workDone();
    proxyGate.restart();
    if (ac.limitsPerRun != 0) {
        urlQueue->beginCount();
        ht.beginCount();
    }
    CABeginPace(HTUptimeMillis());  // first: the workers may take the first seed at once
    urlQueue->hold();
    ac.reloadURLs(urlQueue);
    urlQueue->release();
}

// A run, and the wait that follows it unless it is the last one.
void runOnce(HTThreadContext *context)
{
    HTWorkThread_svcThreadStartWork(1, context);
    ++runs.number;
    const Clock::time_point firstPoll = nextPoll();
    Run();
    if (ac.repeatCount != 1) {
        waitOutRunTime(firstPoll);
    }
    if (runs.isEnding && !runs.areWorkersStopped) {  // the signal came after the end of the run
        CACleanup();
        results.stop();
    }
    HTWorkThread_svcThreadEndWork(1, context);
}

void runRepeats(HTThreadContext *context)
{
    CATrace("Starting.... Will run for %d times!!\n", ac.repeatCount);
    runs.all = ac.repeatCount;
    while (ac.repeatCount > 0) {
        runOnce(context);
        if (--ac.repeatCount != 0) {
            seedAgain();
        }
        CABeginRunTime();
    }
}

void runForEver(HTThreadContext *context)
{
    CATrace("Starting.... Will run for ever!!\n");
    for (;;) {
        runOnce(context);
        if (runs.isEnding) {
            return;
        }
        seedAgain();
        CABeginRunTime();
    }
}

}  // namespace

void *run_loop(void * /*arg*/)
{
    HTThreadContext *const context = HTWorkThread_threadCreate(1);
    HTBlockSignals();
    CATrace("The locale is set to %s.\n", refetchd_LocaleString);
    if (ac.repeatCount <= 0) {
        runForEver(context);
    } else {
        runRepeats(context);
    }
    HTWorkThread_threadExit(1, context);
    done = 1;
    return nullptr;
}

namespace {

bool traceBusyWorkers()
{
    bool any = false;
    for (std::int32_t i = 0; i < workerCount(); ++i) {
        if (workerThreads[i]->areYouBusy() != 0) {
            CATrace("Master...... worker thread #%d is still busy.\n", i + 1);
            any = true;
        }
    }
    return any;
}

// True when no URL is queued, held by a worker or waiting for a resting host. After the queue was
// seen empty, a worker may enqueue a link and become idle before it is checked itself. The queue's
// generation has changed then, and the run goes on.
bool hasRunDry()
{
    const std::uint32_t generation = urlQueue->getGeneration();
    if (urlQueue->empty() == 0) {
        return false;
    }
    CATrace("Master...... queue is empty.\n");
    return !traceBusyWorkers() && restingHosts.parked() == 0 &&
           urlQueue->getGeneration() == generation;
}

bool timeIsUp()
{
    const int elapsed = secondsElapsed();
    CATrace("Master......  time now=%ds, maxruntime=%d\n", elapsed, ac.maxRuntime);
    if (ac.maxRuntime <= 0 || elapsed <= ac.maxRuntime) {
        return false;
    }
    CATrace("Master...... TIME's UP! we have to go...\n");
    CATrace("Master......  now=%ds, maxruntime=%d\n", elapsed, ac.maxRuntime);
    return true;
}

// How many URLs were still queued when the most recent run ended. For the master thread only.
std::int32_t urlsLeft = 0;

// Writes a line to standard error and to the trace, but only once where they are the same.
void tell(const std::string &text)
{
    if (ac.traceStream != stderr) {
        CATrace("Results..... %s\n", text.c_str());
    }
    std::fprintf(stderr, "refetchd: %s\n", text.c_str());
}

// Warns of pages that were refreshed in a copy which visitors do not get. The warning goes to
// standard error, too, unless the trace is there.
void warnOfVary()
{
    const std::int32_t pages = results.varyingPages();
    if (pages == 0) {
        return;
    }
    const std::string names = results.varyingBy();
    std::array<char, 1024> text{};
    std::snprintf(
        text.data(), text.size(),
        "%d %s by %s, and the agent does not send what visitors send: their copies are as "
        "old as before (behind nginx, the agent's copies took their place). Set "
        "\"variant\", see docs/proxies.md.\n",
        pages, pages == 1 ? "page varies" : "pages vary", names.c_str());
    CATrace("Results..... %s", text.data());
    if (ac.traceStream != stderr) {
        std::fprintf(stderr, "refetchd: %s", text.data());
    }
    CAErrorLog(960,
               "Pages vary by %s, and the agent does not send what visitors send: their copies "
               "are as old as before (behind nginx, the agent's copies took their place). Set "
               "\"variant\", see docs/proxies.md.\n",
               names.c_str());
}

// Warns if the proxy seems to ignore max-age=0, except in stress mode.
void warnOfOldCopies()
{
    if (!results.cacheIgnoresUs() || ac.stressMode != 0) {
        return;
    }
    CATrace(
        "Results..... %d of %d pages were served from the proxy's cache although fresh copies "
        "were asked for: the proxy ignores max-age=0, see its recipe.\n",
        results.agedHits(), results.answers200());
    CAErrorLog(956,
               "Most pages were served from the proxy's cache although a fresh copy was asked "
               "for: the proxy ignores max-age=0, see its recipe.\n");
}

// Warns of pages whose links were not looked for because a directive is off.
void warnOfUnsearched()
{
    const CATally &tally = results.lastRun();
    if (tally.unframed > 0) {
        tell(CAUnsearchedText(tally.unframed,
                              "set \"http11 on\" (or, without HTTP/1.1, \"closedelimitedbodies "
                              "on\"), because bodies without a length are thrown away"));
    }
    if (tally.coded > 0) {
        tell(CAUnsearchedText(tally.coded,
                              ac.parseOptions.modernLinks
                                  ? "the agent does not know their Content-Encoding"
                                  : "set \"modernlinks on\", because compressed bodies are "
                                    "thrown away"));
    }
}

// What happened to the order in the most recent run. For the master thread only.
CAQueue::Holdups holdups;

// Warns when the order by depth was not kept, because links may then have been missed.
void warnOfEarlyLevels()
{
    if (holdups.earlyLevels > 0) {
        tell("breadthfirst: " + std::to_string(holdups.earlyLevels) +
             (holdups.earlyLevels == 1 ? " level" : " levels") +
             " did not wait for answers that took longer than breadthwait (" +
             std::to_string(ac.breadthWait) + " s), so links within delvedepth may be missing.");
    }
}

// The exit status after the last run. For the master thread until `done` is 1.
int runStatus = 0;

// Says that the proxy cannot be reached, once in a run, when it has been away for a while: nothing
// else shows why nothing happens.
void tellIfProxyIsAway()
{
    constexpr std::int64_t kAWhile = 10000;
    if (results.observes() && !runs.saidProxyIsAway && proxyGate.awayMillis() >= kAWhile) {
        runs.saidProxyIsAway = true;
        tell("the proxy " + std::string(ac.updateProxy) +
             " cannot be reached; waiting for it until the run is over.");
    }
}

// A run that a signal has cut short is not judged.
void judgeRun()
{
    if (runs.isCutShort) {
        return;
    }
    const CATally &tally = results.lastRun();
    if (const std::string advice = CAAdvice(tally, {.proxy = ac.updateProxy,
                                                    .readTimeout = ac.readTimeout,
                                                    .isStress = ac.stressMode != 0});
        !advice.empty()) {
        tell(advice);
    }
    runStatus = ac.repeatCount == 1 ? CAExitStatus(tally, ac.failWhen) : 0;
    if (runStatus != 0) {
        tell("failwhen " + std::to_string(ac.failWhen) + ": the exit status is " +
             std::to_string(runStatus) + ".");
    }
}

// Writes the results of the run, if a directive asks for them: results log, metrics, the closing
// line, and warnings.
void tellResults(int seconds)
{
    if (!results.observes()) {
        return;
    }
    const CAClosing closing{.run = runs.number,
                            .runs = runs.all,
                            .seconds = seconds,
                            .queueLeft = urlsLeft,
                            .stopped = runs.isCutShort,
                            .proxyWait = runs.proxyWait,
                            .isProxyAway = runs.isProxyAway,
                            .loadWait = runs.loadWait,
                            .loadPauses = ac.maxLoad > 0 ? loadPause.pauses() : -1,
                            .slowdowns = ac.latencyLimit > 0 ? holdups.slowdowns : -1};
    results.endRun(g_ca_timestarted, closing, ac.repeatCount == 1);
    warnOfOldCopies();
    warnOfVary();
    warnOfUnsearched();
    warnOfEarlyLevels();
    tell(CAClosingLine(results.lastRun(), closing));
    if (const std::string away = CAAwayText(closing, ac.updateProxy); !away.empty()) {
        tell(away);
    }
    if (const std::string paused = CAPausedText(closing); !paused.empty()) {
        tell(paused);
    }
    judgeRun();
}

// Empties the queue, and forgets each of its URLs. Returns how many they were. Those that were not
// requested because the proxy was away have failed, and are not counted.
std::int32_t drainQueue()
{
    std::int32_t count = 0;
    while (auto *const url = static_cast<CAURL *>(urlQueue->drain())) {
        if (runs.isProxyAway && results.observes()) {
            CATellUnreached(url);
        } else {
            ++count;
        }
        if (processedUrls != nullptr) {
            CAForgetProcessed(url->stringitize());
        }
        delete url;
    }
    return count;
}

// For the time after the clean-up: a seed of the next run must not count as processed because a
// worker found, or even requested, it as a link of a page that was still on its way.
void forgetLateLinks()
{
    CAForgetAllProcessed();
    urlsLeft += drainQueue();
}

// Has the workers give up the answers of a run that has ended, so that all of them work for the
// next one. What they give up is a result of the run that has ended. To be called after the
// clean-up, so that they find no URL of that run in the queue.
void freeWorkers()
{
    CAGiveUpAnswers();
    if (results.observes()) {
        waitWhileAnyWorker(&CAWorkerThread::areYouBusy, forgetLateLinks);
        forgetLateLinks();
    }
}

// Ends the run. The results are written after the clean-up, because the requests that workers
// finish meanwhile count for this run.
void endRun(const char *message)
{
    runs.atEnd = progressOfRun();
    runs.isOver = true;
    runs.isCutShort = runs.isEnding;
    runs.isProxyAway = proxyGate.isAway();
    runs.proxyWait = proxyGate.awayMillisOfRun();
    runs.loadWait = loadPause.millisOfRun(HTUptimeMillis());
    ++currentRun;
    const int seconds = secondsElapsed();
    results.flush();
    CASummary();
    CACleanup();
    if (!runs.areWorkersStopped) {
        freeWorkers();
    }
    tellResults(seconds);
    obey(CANextSignal(0));
    loadPause.endRun();
    runs.isOver = false;
    runs.saidProxyIsAway = false;
    CATrace("%s", message);
}

}  // namespace

void Run()
{
    obey(CANextSignal(0));  // one may have come before the first run
    Clock::time_point poll = nextPoll();
    for (;;) {
        updatetimeRep(0);
        restingHosts.release(HTUptime(), urlQueue);
        if (runs.isEnding || timeIsUp()) {
            return endRun("Master...... all threads done - we outta here!\n");
        }
        if (hasRunDry()) {
            return endRun("Master...... all threads done - we're outta here!\n");
        }
        results.flush();
        tellIfProxyIsAway();
        if (progressClock.isDue(secondsElapsed(), ac.progressSeconds)) {
            writeProgress(progressOfRun());
        }
        if (waitForPoll(poll)) {
            poll = nextPoll();
            CAWatchLoad();
            CAWorkerThread::resetCountPerSecond(ac.requestsPerSecond);
        }
    }
}

namespace {

// Deletes a worker that has left its loop. False when it still runs and its thread is left behind,
// or when it never had a thread.
bool deleteWorker(CAWorkerThread *worker)
{
    if (worker->areYouRunning() != 0) {
        worker->abandon();
        return false;
    }
    worker->join();
    delete worker;
    return true;
}

// Waits for the polling interval; with `wakeclients` no longer than the workers need.
void letWorkersLeave()
{
    if (ac.wakeClients != 0) {
        waitWhileAnyWorker(&CAWorkerThread::areYouRunning, [] {});
    } else {
        waitForPoll(nextPoll());
    }
}

// Stops and deletes all workers. Those that do not leave by themselves give up their answers, and
// all together get another second for that. False when some of them still run.
bool stopWorkers()
{
    const std::int32_t count = workerCount();
    runs.areWorkersStopped = true;
    for (std::int32_t i = 0; i < count; ++i) {
        CATrace("Stopping.... client thread #%d.\n", i + 1);
        workerThreads[i]->stop();
    }
    CAWakeStopped();
    letWorkersLeave();
    CAGiveUpAnswers();
    waitWhileAnyWorker(&CAWorkerThread::areYouRunning, [] {});
    std::int32_t deleted = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        CATrace("Deleting.... client thread #%d.\n", i + 1);
        if (deleteWorker(workerThreads[i])) {
            workerThreads[i] = nullptr;
            ++deleted;
        }
    }
    return deleted == count;
}

// A worker that is still busy may record a URL meanwhile, which is then forgotten or stays.
void flushProcessedUrls()
{
    CATrace("Flushing.... remove all processed URLs.\n");
    CAForgetAllProcessed();
}

// Empties the queue, and forgets each of its URLs. A worker that is still busy may have recorded
// and enqueued a link after flushProcessedUrls(): without this the next run would take the link for
// processed.
void flushQueue()
{
    CATrace("Flushing.... remove all non-processed URLs.\n");
    urlsLeft = drainQueue();
    holdups = urlQueue->closeRun();
}

}  // namespace

int CARunStatus()
{
    return runStatus;
}

void CASummary()
{
    if (ac.reportStream == nullptr) {
        return;
    }
    CATrace("Now writing Automatic Cache Refresh Summary file!\n");
    CAWriteSummary(ac.reportStream,
                   {.adminUrls = ac.adminUrlCount,
                    .topUrls = ac.seedCount - ac.adminUrlCount,
                    .loaded = workDone().succeeded,
                    .notProcessed = urlQueue->getLength() + restingHosts.parked()},
                   g_ca_hits_filename);
}

void CACleanup()
{
    const bool last = ac.repeatCount == 1;
    bool allGone = false;
    if (last) {
        allGone = stopWorkers();
        ac.workersLeft = !allGone;
    } else {
        CATrace("Reporting... Skip deleting thread for following runs\n");
    }
    if (processedUrls != nullptr) {
        flushProcessedUrls();
    }
    restingHosts.release(CARestTable::kForEver, urlQueue);
    flushQueue();
    if (allGone) {
        delete urlQueue;
        urlQueue = nullptr;
        HashDestroy(processedUrls);
        processedUrls = nullptr;
    }
}
