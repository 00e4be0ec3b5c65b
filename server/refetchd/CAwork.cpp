#include "CAwork.h"

#include <memory>
#include <string>

#include "CAURL.h"
#include "CAnet.h"
#include "CAparseHTTP.h"
#include "CAqueue.h"
#include "CAtrace.h"
#include "HTWorkThread.h"
#include "refetchd.h"

PMutex *const CAWorkerThread::mutex = new PMutex;
std::int32_t CAWorkerThread::countPerSecond = 0;
std::int32_t CAWorkerThread::maxCountPerSecond = 0;

HTThreadHandle CAWorkerThread::start()
{
    keepGoing_ = 1;
    thread_ = StartThread(ClientThread, reinterpret_cast<void *>(std::intptr_t{index_}));
    return thread_;
}

std::int32_t CAWorkerThread::mayISendRequest()
{
    const PMutexGuard guard(*mutex);
    if (maxCountPerSecond < 1) {
        return 1;
    }
    if (countPerSecond >= maxCountPerSecond) {
        return 0;
    }
    ++countPerSecond;
    return 1;
}

std::int32_t CAWorkerThread::resetCountPerSecond(std::int32_t max)
{
    const PMutexGuard guard(*mutex);
    countPerSecond = 0;
    maxCountPerSecond = max;
    return 1;
}

std::int32_t CAWorkerThread::mayIHaveAConnection()
{
    const PMutexGuard guard(*mutex);
    if (ac.maxConnections < 1) {
        return 1;
    }
    if (CAConnection::connectionCount >= ac.maxConnections) {
        return 0;
    }
    ++CAConnection::connectionCount;
    return 1;
}

std::int32_t CAWorkerThread::releaseAConnection()
{
    const PMutexGuard guard(*mutex);
    if (ac.maxConnections < 1) {
        return 1;
    }
    if (CAConnection::connectionCount < 1) {
        return 0;
    }
    --CAConnection::connectionCount;
    return 1;
}

namespace {

// What one worker's thread works with.
struct Client {
    CAWorkerThread *worker = nullptr;
    std::int32_t index = 0;
    HTThreadContext *context = nullptr;
    std::unique_ptr<CAConnection> connection;  // to the proxy; none when each URL has its own

    [[nodiscard]] bool keepsGoing() const { return worker->shouldKeepGoing() != 0; }
};

// Each URL gets a connection of its own, to its own host.
bool connectsPerUrl()
{
    return ac.transparentProxy != 0 && ac.connectToHost != 0;
}

// Waits for the right to a connection, and makes it. It may be told to stop instead.
void makeConnection(Client *client)
{
    while (CAWorkerThread::mayIHaveAConnection() == 0) {
        if (!client->keepsGoing()) {
            return;
        }
        CATrace("Worker...... waiting for a Connection.\n");
        HTSleep(kPollMilliseconds);
    }
    if (client->keepsGoing()) {
        client->connection = std::make_unique<CAConnection>(ac.updateProxy);
    }
}

// Waits for the right to start a request; false when told to stop instead.
bool waitForBudget(const Client &client)
{
    while (client.keepsGoing()) {
        if (CAWorkerThread::mayISendRequest() != 0) {
            return client.keepsGoing();
        }
        HTSleep(kPollMilliseconds);
    }
    return false;
}

// Fetches one URL, which stays the caller's.
void fetch(const Client &client, CAURL *url)
{
    std::unique_ptr<CAConnection> ownConnection;  // before the parser, which goes first at the end
    CAParseHTTP parser(url, client.context);
    CATrace("Worker...... #%d working on URL \"%s\".\n", client.index + 1, url->stringitize());
    if (connectsPerUrl()) {
        ownConnection = std::make_unique<CAConnection>(std::string(url->host()).c_str());
    }
    CAConnection *const connection =
        ownConnection != nullptr ? ownConnection.get() : client.connection.get();
    if (client.keepsGoing() && connection != nullptr) {
        connection->requestURL(url, &parser);
        if (parser.getHTTPRequestRC() == 200) {
            client.worker->incrementSuccesses();
        }
    }
}

// Takes the next URL, if another worker has not taken it meanwhile, and sees it through. Busy is
// set before the queue is asked: whoever finds the queue empty finds the taker busy.
void workOnNext(const Client &client)
{
    client.worker->makeBusy();
    auto *const url = static_cast<CAURL *>(urlQueue->dequeue());
    if (url != nullptr) {
        fetch(client, url);
        delete url;
    }
    client.worker->makeIdle();
}

void onePass(const Client &client)
{
    HTWorkThread_svcThreadStartWork(1, client.context);
    if (ac.delayMs > 0) {
        HTSleep(static_cast<std::uint32_t>(ac.delayMs));
    }
    if (urlQueue->empty() != 0) {
        CATrace("Worker...... thread %d has nothing to do.\n", client.index + 1);
        HTSleep(kPollMilliseconds);
    } else if (waitForBudget(client)) {
        workOnNext(client);
    }
    HTWorkThread_svcThreadEndWork(1, client.context);
}

}  // namespace

void *ClientThread(void *arg)
{
    const auto index = static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(arg));
    CATrace("Worker...... thread %d starting.\n", index + 1);
    HTThreadContext *const context = HTWorkThread_threadCreate(1);
    HTBlockSignals();
    Client client{
        .worker = workerThreads[index], .index = index, .context = context, .connection = nullptr};
    if (!connectsPerUrl()) {
        makeConnection(&client);
    }
    while (client.keepsGoing()) {
        onePass(client);
    }
    HTWorkThread_threadExit(1, context);
    client.worker->notRunning();
    if (client.connection != nullptr) {
        client.connection.reset();
        CAWorkerThread::releaseAConnection();
    }
    // Counted from 0 here, unlike everywhere else.
    CATrace("Worker...... thread %d exiting.\n", index);
    return nullptr;
}
