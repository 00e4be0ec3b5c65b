#include "CArun.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "HTInit.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "fetch/CAwork.h"
#include "htthread.h"
#include "refetchd.h"
#include "report/CAprogress.h"
#include "report/CAresults.h"
#include "report/CAsummary.h"
#include "url/CAURL.h"
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
    return static_cast<int>(HTtime() - g_ca_timestarted);
}

}  // namespace

std::int32_t CAStartWorkers()
{
    const std::int32_t count = workerCount();
    std::int32_t started = 0;
    workerThreads = new CAWorkerThread *[static_cast<std::size_t>(count)] {};
    CAWorkerThread::resetCountPerSecond(ac.requestsPerSecond);
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
    return progress;
}

// Writes the line of progress to standard error.
void writeProgress(const CAProgress &progress)
{
    std::array<char, 256> line{};
    CAFormatProgress(line.data(), line.size(), progress);
    std::fputs(line.data(), stderr);
}

// SIGUSR1 asks for a line of progress. Every thread blocks the signal, so it stays pending until
// the master thread takes it here.
bool progressIsAskedFor()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    const std::timespec atOnce{};
    return sigtimedwait(&signals, nullptr, &atOnce) == SIGUSR1;
}

// Waits until `maxruntime` seconds have passed since the start of the run, before the next one may
// start. A SIGUSR1 during the wait is answered with the progress of the run that is over.
void waitOutRunTime()
{
    for (;;) {
        if (progressIsAskedFor()) {
            writeProgress(progressOfRun());
        }
        if (secondsElapsed() >= ac.maxRuntime) {
            return;
        }
        HTSleep(kPollMilliseconds);
    }
}

// Queues the seeds again. All work of the workers from now on counts for the next run.
void seedAgain()
{
    doneBefore = workDone();
    urlQueue->hold();
    ac.reloadURLs(urlQueue);
    urlQueue->release();
}

void runRepeats(HTThreadContext *context)
{
    CATrace("Starting.... Will run for %d times!!\n", ac.repeatCount);
    while (ac.repeatCount > 0) {
        HTWorkThread_svcThreadStartWork(1, context);
        Run();
        if (ac.repeatCount > 1) {
            waitOutRunTime();
        }
        HTWorkThread_svcThreadEndWork(1, context);
        if (--ac.repeatCount != 0) {
            seedAgain();
        }
        g_ca_timestarted = HTtime();
    }
}

[[noreturn]] void runForEver(HTThreadContext *context)
{
    CATrace("Starting.... Will run for ever!!\n");
    for (;;) {
        HTWorkThread_svcThreadStartWork(1, context);
        Run();
        waitOutRunTime();
        HTWorkThread_svcThreadEndWork(1, context);
        seedAgain();
        g_ca_timestarted = HTtime();
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
    }
    runRepeats(context);
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

// Writes the results of the run, if there is a results log or a metrics file. Warns if the proxy
// seems to ignore max-age=0, except in stress mode, and of pages that vary.
void tellResults(int seconds)
{
    if (!results.observes()) {
        return;
    }
    results.endRun(g_ca_timestarted, seconds, urlsLeft, ac.repeatCount == 1);
    if (results.cacheIgnoresUs() && ac.stressMode == 0) {
        CATrace(
            "Results..... %d of %d pages were served from the proxy's cache although fresh copies "
            "were asked for: the proxy ignores max-age=0, see its recipe.\n",
            results.agedHits(), results.answers200());
        CAErrorLog(956,
                   "Most pages were served from the proxy's cache although a fresh copy was asked "
                   "for: the proxy ignores max-age=0, see its recipe.\n");
    }
    warnOfVary();
}

// The progress at the end of the run, for a SIGUSR1 that comes while its workers and its queue are
// being deleted. For the master thread only.
CAProgress progressAtEnd;

void answerAtEnd()
{
    if (progressIsAskedFor()) {
        writeProgress(progressAtEnd);
    }
}

// Ends the run. The results are written after the clean-up, because the requests that workers
// finish meanwhile count for this run.
void endRun(const char *message)
{
    progressAtEnd = progressOfRun();
    ++currentRun;
    const int seconds = secondsElapsed();
    results.flush();
    CASummary();
    CACleanup();
    tellResults(seconds);
    answerAtEnd();
    CATrace("%s", message);
}

}  // namespace

void Run()
{
    for (;;) {
        updatetimeRep(0);
        restingHosts.release(HTtime(), urlQueue);
        if (timeIsUp()) {
            return endRun("Master...... all threads done - we outta here!\n");
        }
        if (hasRunDry()) {
            return endRun("Master...... all threads done - we're outta here!\n");
        }
        results.flush();
        if (progressClock.isDue(secondsElapsed(), ac.progressSeconds) || progressIsAskedFor()) {
            writeProgress(progressOfRun());
        }
        HTSleep(kPollMilliseconds);
        CAWorkerThread::resetCountPerSecond(ac.requestsPerSecond);
    }
}

namespace {

void waitForWorkers()
{
    HTSleep(kPollMilliseconds);
    answerAtEnd();
}

// Deletes a worker that has left its loop; waits one second if it has not. False when it still runs
// after that and its thread is left behind, or when it never had a thread.
bool deleteWorker(CAWorkerThread *worker)
{
    if (worker->areYouRunning() != 0) {
        waitForWorkers();
    }
    if (worker->areYouRunning() != 0) {
        worker->abandon();
        return false;
    }
    worker->join();
    delete worker;
    return true;
}

// Stops and deletes all workers. False when some of them still run.
bool stopWorkers()
{
    const std::int32_t count = workerCount();
    for (std::int32_t i = 0; i < count; ++i) {
        CATrace("Stopping.... client thread #%d.\n", i + 1);
        workerThreads[i]->stop();
    }
    waitForWorkers();
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
    urlsLeft = 0;
    while (auto *const url = static_cast<CAURL *>(urlQueue->drain())) {
        ++urlsLeft;
        if (processedUrls != nullptr) {
            CAForgetProcessed(url->stringitize());
        }
        delete url;
    }
}

}  // namespace

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
