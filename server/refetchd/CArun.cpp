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

// A negative number of clients is none.
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

// What the workers have done since they were started.
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

// What was done in the runs before this one, and when the last line was written. The master's.
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

// The line of progress, to standard error.
void writeProgress(const CAProgress &progress)
{
    std::array<char, 256> line{};
    CAFormatProgress(line.data(), line.size(), progress);
    std::fputs(line.data(), stderr);
}

// SIGUSR1 asks for it at any time; it is blocked in every thread and waits here.
bool progressIsAskedFor()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    const std::timespec atOnce{};
    return sigtimedwait(&signals, nullptr, &atOnce) == SIGUSR1;
}

// Runs follow each other no faster than one in `maxruntime` seconds. A SIGUSR1 that comes before
// the end of the wait is answered for the run that is over.
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

// Queues the seeds again. From now on all that the workers do is the next run's.
void seedAgain()
{
    doneBefore = workDone();
    ac.reloadURLs(urlQueue);
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

// The queue is empty and no worker holds a URL. The workers are looked at one after the other, so
// one may have enqueued a link and gone idle before its turn came, behind our look at the queue;
// but then the queue has moved, and the run goes on.
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

// URLs that nobody had asked for when the run that ended last was cleaned up. The master's.
std::int32_t urlsLeft = 0;

// What was observed of a run is written, and what stands out is said.
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
}

// How the run ended, for SIGUSR1 while its workers and its queue are deleted. The master's.
CAProgress progressAtEnd;

void answerAtEnd()
{
    if (progressIsAskedFor()) {
        writeProgress(progressAtEnd);
    }
}

// The run is over. The results come last, for what the workers are still at belongs to the last
// run.
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

// Deletes a worker that has left its loop, waiting one second for it; false when it still runs.
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

// Stops all workers. True when every one of them is gone.
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

// A worker that is busy over the end of the run may add a text at any time: it goes or stays.
void flushProcessedUrls()
{
    CATrace("Flushing.... remove all processed URLs.\n");
    CAForgetAllProcessed();
}

// A worker that is busy over the end may have recorded a link behind the flush of the texts and
// enqueued it before this one: forgotten here only, it would count as processed in the next run.
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
