#include "fetch/CAwork.h"

#include <algorithm>
#include <memory>
#include <string>

#include "HTString.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAsitemapSeeds.h"
#include "fetch/CAnet.h"
#include "fetch/CApace.h"
#include "fetch/CAproxyGate.h"
#include "fetch/CAwake.h"
#include "parse/CAparseHTTP11.h"
#include "report/CAresults.h"
#include "url/CAURL.h"
#include "url/CAqueue.h"
#include "url/CArest.h"

CAWorkerThread **workerThreads = nullptr;

PMutex *const CAWorkerThread::mutex = new PMutex;
std::atomic<std::int32_t> CAWorkerThread::busyWorkers = 0;
std::atomic<std::int32_t> CAWorkerThread::runningWorkers = 0;
std::int32_t CAWorkerThread::countPerSecond = 0;
std::int32_t CAWorkerThread::maxCountPerSecond = 0;

HTThreadHandle CAWorkerThread::start()
{
    keepGoing_ = 1;
    ++runningWorkers;
    thread_ = StartThread(ClientThread, reinterpret_cast<void *>(std::intptr_t{index_}));
    runningWorkers -= thread_ == 0 ? 1 : 0;
    return thread_;
}

void CAWorkerThread::notRunning()
{
    running_ = 0;
    --runningWorkers;
}

void CAWorkerThread::makeBusy()
{
    busy_ = 1;
    ++busyWorkers;
}

void CAWorkerThread::makeIdle()
{
    busy_ = 0;
    --busyWorkers;
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

void CAWorkerThread::returnRequest()
{
    const PMutexGuard guard(*mutex);
    if (countPerSecond > 0) {
        --countPerSecond;
    }
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

// What one worker thread works with: "client" is the directives' word for it (`numclients`).
struct Client {
    CAWorkerThread *worker = nullptr;
    std::int32_t index = 0;
    HTThreadContext *context = nullptr;
    std::unique_ptr<CAConnection> connection;  // to the proxy; null when connectsPerUrl()
    CATicket ticket;                           // of the URL that is fetched
    std::unique_ptr<CAClientPace> pace;        // null: nothing but the budget holds requests back

    [[nodiscard]] bool keepsGoing() const { return worker->shouldKeepGoing() != 0; }
};

// True when each URL gets a connection of its own, to its own host.
bool connectsPerUrl()
{
    return ac.transparentProxy != 0 && ac.connectToHost != 0;
}

// Sleeps for something else than a URL. With `wakeclients` the end of the worker ends it early.
void nap(const Client &client, std::int64_t milliseconds)
{
    const auto ms = static_cast<std::uint32_t>(milliseconds);
    if (ac.wakeClients == 0) {
        HTSleep(ms);
        return;
    }
    const CASleepers::News seen = heldClients.news();
    if (client.keepsGoing()) {
        heldClients.sleep(seen, ms);
    }
}

// Sleeps because the queue has no URL for this worker. With `wakeclients` a URL that comes after
// `seen` ends it early.
void waitForUrl(const Client &client, CASleepers::News seen, std::uint32_t milliseconds)
{
    if (ac.wakeClients == 0) {
        HTSleep(milliseconds);
    } else if (client.keepsGoing()) {
        urlQueue->sleepers().sleep(seen, milliseconds);
    }
}

// Waits until another connection is allowed, and makes it; none when the worker is stopped first.
void makeConnection(Client *client)
{
    while (CAWorkerThread::mayIHaveAConnection() == 0) {
        if (!client->keepsGoing()) {
            return;
        }
        CATrace("Worker...... waiting for a Connection.\n");
        nap(*client, kPollMilliseconds);
    }
    if (client->keepsGoing()) {
        client->connection = std::make_unique<CAConnection>(ac.updateProxy);
    }
}

// A worker thread whose next request is held back looks this often whether it still is, and whether
// its run is over.
constexpr std::int64_t kPaceMilliseconds = 250;

// Tries to get another request out of the budget; sleeps for a while when that is used up, or when
// the pace of the client does not allow a request now.
bool takeRequest(const Client &client)
{
    const std::int64_t wait =
        client.pace == nullptr ? 0 : client.pace->millisToWait(HTUptimeMillis());
    if (wait > 0) {
        urlQueue->sleepers().wakeOne();  // it need not be this client that takes the next URL
        nap(client, std::min(wait, kPaceMilliseconds));
        return false;
    }
    if (CAWorkerThread::mayISendRequest() != 0) {
        return true;
    }
    nap(client, kPollMilliseconds);
    return false;
}

// Waits until pace and budget allow another request; false when the worker is stopped first.
bool waitForBudget(const Client &client)
{
    while (client.keepsGoing()) {
        if (takeRequest(client)) {
            return client.keepsGoing();
        }
    }
    return false;
}

// The same for a retry, which must belong to run `run`: also false when that has ended.
bool waitForBudget(const Client &client, std::uint32_t run)
{
    while (currentRun == run && client.keepsGoing()) {
        if (takeRequest(client)) {
            return true;
        }
    }
    return false;
}

// How long a worker thread sleeps when all URLs in the queue must wait: with `breadthfirst` for
// shallower ones in work, with a limit for each host for other requests to their hosts.
constexpr std::uint32_t kHeldBackMilliseconds = 50;

// Measures an exchange for the results, if anybody wants to know.
class Stopwatch {
public:
    explicit Stopwatch(CAExchange *result) : result_(result)
    {
        if (results.observes()) {
            result_->started = CANowMilliseconds();
            since_ = HTUptimeMillis();
        }
    }
    void stop() { result_->milliseconds = HTUptimeMillis() - since_; }

private:
    CAExchange *const result_;
    std::int64_t since_ = 0;
};

// What happens to a URL after an exchange.
enum class Next : std::uint8_t {
    Done,
    Variant,  // request its next variant
    Retry,    // the exchange broke off before a response: try again
    Resend,   // a kept connection was reset: try again, which does not count
    Rest,     // the host asked for a pause: request the URL once more after it
    Away,     // the proxy cannot be reached: request the URL when it can be
    Parked,   // the URL waits already, because another one's host asked for a pause
};

// Lets the host of `url` rest for as long as it asked.
void restHost(const CAURL &url, std::int64_t seconds)
{
    const std::int64_t rest = restingHosts.rest(url.host(), HTUptime(), seconds);
    CATrace("Worker...... host %.*s is left alone for %d s.\n", CALength(url.host()),
            url.host().data(), static_cast<int>(rest));
}

// True when a directive is set that needs each response matched with the right URL.
bool looksAtAnswers()
{
    return results.observes() || ac.retries > 0 || ac.retryAfter != 0 || ac.parseOptions.http11;
}

// Why the exchange failed. A closed connection is no failure if it marks the end of the body. While
// a redirection waits for room in the queue, or an unwanted body is read away, nothing is: all that
// counts has been read.
CAFailure failureOf(const CAParseHTTP &parser, const CAConnection &connection)
{
    if (!parser.isHTTP() || (parser.isCutShort() && !parser.isUnwanted())) {
        return CAFailure::BadResponse;
    }
    const bool isEnd = parser.isUnframed() && connection.failure() == CAFailure::Closed;
    const bool isEnough = isEnd || parser.waitsForRoom() || parser.isUnwanted();
    return isEnough ? CAFailure::None : connection.failure();
}

// The number of the URL's current variant for the results.
std::int32_t variantOf(const CAURL &url)
{
    return ac.variants.empty() ? 0 : static_cast<std::int32_t>(url.variant()) + 1;
}

// How many variants of the URL follow the current one.
std::size_t variantsLeft(const CAURL &url)
{
    return ac.variants.empty() ? 0 : ac.variants.size() - url.variant() - 1;
}

// Reports a URL that is not requested, or not retried, for this reason.
void tellUnrequested(const CAURL &url, CAFailure why)
{
    if (results.observes()) {
        results.finished(
            url, {.failure = why, .started = CANowMilliseconds(), .variant = variantOf(url)});
    }
}

// The same for all variants of the URL that are left.
void tellAllUnrequested(CAURL *url, CAFailure why)
{
    tellUnrequested(*url, why);
    while (variantsLeft(*url) > 0) {
        url->advanceVariant();
        tellUnrequested(*url, why);
    }
}

// While it lives, the results count a URL as in flight on this worker thread.
class InFlight {
public:
    InFlight(std::int32_t client, const CAURL &url) : client_(client) { note(url); }
    // Notes that the URL is in flight again, after its result was reported, for another variant.
    void note(const CAURL &url) const
    {
        if (results.observes()) {
            const std::int32_t variant = variantOf(url);
            results.setInFlight(client_, &url, variant,
                                variant + static_cast<std::int32_t>(variantsLeft(url)));
        }
    }
    ~InFlight()
    {
        if (results.observes()) {
            results.setInFlight(client_, nullptr);
        }
    }
    InFlight(const InFlight &) = delete;
    InFlight &operator=(const InFlight &) = delete;

private:
    const std::int32_t client_;
};

// Decides whether another exchange is to follow in this run; makes the URL's host rest if the
// response asks for that.
Next nextOf(const Client &client, const CAURL &url, const CAExchange &result,
            const CAParseHTTP &parser, const CAConnection &connection)
{
    const bool isReset = result.failure == CAFailure::Reset && connection.brokeWhenKept();
    if (isReset && ac.retries > 0 && !url.isResent() && client.keepsGoing()) {
        return Next::Resend;
    }
    if (CAIsWorthRetrying(result) && url.retries() < ac.retries && client.keepsGoing()) {
        return Next::Retry;
    }
    const std::int64_t rest =
        ac.retryAfter == 0 ? 0 : CAAskedRest(result.status, parser.header("Retry-After:"));
    if (rest > 0) {
        restHost(url, rest);
    }
    return rest > 0 && !url.isRepeated() ? Next::Rest : Next::Done;
}

// The first variant alone leads on: what visitors see is the same page in all of them.
CAParseOptions optionsFor(const CAURL &url)
{
    CAParseOptions options = ac.parseOptions;
    options.takesNothing = url.variant() > 0;
    return options;
}

// True for an answer whose time shows how fast the host is: not when it failed at once, nor when a
// redirection waited for room in the queue.
bool showsLatency(const CAParseHTTP &parser, const CAConnection &connection)
{
    constexpr int kServerError = 500;
    switch (failureOf(parser, connection)) {
    case CAFailure::None: return parser.getHTTPRequestRC() < kServerError && !parser.waitsForRoom();
    case CAFailure::TimedOut:
    case CAFailure::TooSlow:
    case CAFailure::TooLong: return true;
    default: return false;
    }
}

// Requests the URL. Those who want to know are told how long that took.
void request(const Client &client, CAConnection *connection, const CAURL &url, std::uint32_t run,
             CAParseHTTP *parser)
{
    const bool isTimed = client.pace != nullptr || ac.latencyLimit > 0;
    const std::int64_t since = isTimed ? HTUptimeMillis() : 0;
    connection->requestURL(&url, parser);
    if (!isTimed || connection->isUnreachable()) {
        return;
    }
    const std::int64_t now = HTUptimeMillis();
    if (showsLatency(*parser, *connection)) {
        urlQueue->answered(client.ticket, now - since);
    }
    if (client.pace != nullptr) {
        client.pace->noteAnswer(now - since, run, now);
    }
}

// With TLS, status 421 means that the server does not answer for this host on this connection. The
// URL is then requested once more, with a new parser, on a new connection.
void requestElsewhere(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run,
                      std::unique_ptr<CAParseHTTP> *parser)
{
    constexpr int kMisdirected = 421;
    const bool isRefused =
        ac.proxyTls != 0 && (*parser)->isHTTP() && (*parser)->getHTTPRequestRC() == kMisdirected;
    if (!isRefused || url->isMisdirected() || !waitForBudget(client, run)) {
        return;
    }
    CATrace("Worker...... the connection is refused for URL \"%s\", trying a new one.\n",
            url->stringitize());
    url->setMisdirected();
    connection->renew();
    *parser = CANewResponseParser(url, client.context, optionsFor(*url));
    request(client, connection, *url, run, parser->get());
}

// While the worker threads wait for the proxy, each looks this often whether it can be reached.
constexpr std::int64_t kGateMilliseconds = 100;

// Sleeps while the gate is closed and the run goes on, for at most so many milliseconds.
void waitAtGate(const Client &client, std::uint32_t run, std::int64_t milliseconds)
{
    const std::int64_t end = HTUptimeMillis() + milliseconds;
    std::int64_t left = milliseconds;
    while (left > 0 && !proxyGate.isOpen() && currentRun == run && client.keepsGoing()) {
        nap(client, std::min(left, kGateMilliseconds));
        left = end - HTUptimeMillis();
    }
}

// Waits until a connection to the proxy can be made again, or the run is over. One worker thread at
// a time tries to connect.
void waitForProxy(const Client &client, std::uint32_t run)
{
    client.connection->beginRun(run);
    while (!proxyGate.isOpen() && currentRun == run && client.keepsGoing()) {
        if (!proxyGate.beginProbe()) {
            waitAtGate(client, run, kGateMilliseconds);
            continue;
        }
        waitAtGate(client, run, proxyGate.nextPauseMillis());
        if (currentRun == run && client.keepsGoing() && client.connection->probe()) {
            proxyGate.open();
        }
        proxyGate.endProbe();
    }
    if (!client.connection->isOpen()) {
        client.connection->lookUpAgain();  // the proxy may have another address now
    }
}

// True when the URL could not be requested because the proxy cannot be reached, and is to wait.
bool mustWait(const Client &client, const CAConnection &connection, std::uint32_t run)
{
    return connection.isUnreachable() && ac.retries > 0 && !connectsPerUrl() && currentRun == run &&
           client.keepsGoing();
}

// Tells the gate what an exchange shows about the proxy.
void tellGate(const CAConnection &connection)
{
    if (!proxyGate.isOpen() && connection.hasReached()) {
        proxyGate.open();  // it was closed at the end of the run before
    } else if (proxyGate.isAway() && connection.received() > 0) {
        proxyGate.noteAnswer();
    }
}

// Tells the administrator that the response to a sitemap's URL brings no seeds. Many hosts lack a
// robots.txt, so that is not told.
void tellOfSitemap(const CAURL &url, const CAExchange &result, const CAParseHTTP &parser)
{
    if (url.role() != CARole::Sitemap || url.variant() > 0) {
        return;
    }
    constexpr int kOk = 200;
    if (result.status == 0) {
        CATellOfSitemap(url, std::string(CAFailureText(result.failure)));
    } else if (result.status != kOk && !parser.leadsOn()) {
        CATellOfSitemap(url, "status " + std::to_string(result.status));
    }
}

// Requests the URL's current variant once. The result is reported unless it is to be requested once
// more.
Next exchange(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run)
{
    auto parser = CANewResponseParser(url, client.context, optionsFor(*url));
    CATrace("Worker...... #%d working on URL \"%s\".\n", client.index + 1, url->stringitize());
    CAExchange result;
    Stopwatch stopwatch(&result);
    if (!client.keepsGoing() || connection == nullptr) {
        tellUnrequested(*url, CAFailure::Stopped);
        return Next::Done;
    }
    request(client, connection, *url, run, parser.get());
    requestElsewhere(client, connection, url, run, &parser);
    if (mustWait(client, *connection, run)) {
        return Next::Away;
    }
    tellGate(*connection);
    result.status = parser->isHTTP() ? parser->getHTTPRequestRC() : 0;
    result.failure = failureOf(*parser, *connection);
    if (result.failure != CAFailure::None) {
        parser->breakOff();
    }
    result.reason = connection->reason();
    if (connection->failure() == CAFailure::TimedOut && looksAtAnswers()) {
        connection->renew();  // a late response must not be taken for that of the next URL
    }
    const Next next =
        currentRun == run ? nextOf(client, *url, result, *parser, *connection) : Next::Done;
    if (parser->getHTTPRequestRC() == 200 && url->variant() == 0 && next != Next::Resend) {
        client.worker->incrementSuccesses();
    }
    if (next != Next::Done) {
        return next;
    }
    if (url->variant() == 0) {
        client.worker->incrementFinished();
    }
    tellOfSitemap(*url, result, *parser);
    if (results.observes()) {
        result.variant = variantOf(*url);
        stopwatch.stop();
        result.bytes = connection->received();
        result.headers = parser->cacheHeaders();
        result.unsearched = parser->unsearched();
        results.finished(*url, result);
    }
    return Next::Done;
}

// Goes on to the URL's next variant as soon as that may be requested; a variant counts as a request
// for every limit. Done when there is none, or when the run ends first.
Next advance(const Client &client, const InFlight &inFlight, CAURL *url, std::uint32_t run)
{
    if (variantsLeft(*url) == 0) {
        return Next::Done;
    }
    url->advanceVariant();
    if (ac.retryAfter != 0 && restingHosts.park(url, HTUptime())) {
        return Next::Parked;
    }
    inFlight.note(*url);
    if (ac.delayMs > 0) {
        nap(client, ac.delayMs);
    }
    if (waitForBudget(client, run)) {
        return Next::Variant;
    }
    tellAllUnrequested(url, CAFailure::Stopped);
    return Next::Done;
}

// Requests the URL in all variants that are left, one behind the other on the same connection.
Next exchangeAll(const Client &client, CAConnection *connection, const InFlight &inFlight,
                 CAURL *url, std::uint32_t run)
{
    Next next = Next::Variant;
    while (next == Next::Variant) {
        next = exchange(client, connection, url, run);
        next = next == Next::Done ? advance(client, inFlight, url, run) : next;
    }
    return next;
}

void retry(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run);
void resend(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run);

// Fetches one URL, which is then deleted, or queued or parked for another exchange.
void fetch(const Client &client, CAURL *url, std::uint32_t run)
{
    std::unique_ptr<CAConnection> ownConnection;
    CAConnection *connection = client.connection.get();
    Next next = Next::Done;
    {
        const InFlight inFlight(client.index, *url);
        if (connectsPerUrl()) {  // resolves the host, which may block: the URL is in flight by now
            ownConnection = std::make_unique<CAConnection>(std::string(url->host()).c_str());
            ownConnection->beginRun(run);
            connection = ownConnection.get();
        }
        next = exchangeAll(client, connection, inFlight, url, run);
    }
    switch (next) {
    case Next::Retry: return retry(client, connection, url, run);
    case Next::Resend: return resend(client, connection, url, run);
    case Next::Rest:
        url->setRepeated();
        if (!restingHosts.park(url, HTUptime())) {
            urlQueue->requeue(url);  // the host's rest has ended already
        }
        return;
    case Next::Away:
        proxyGate.close();
        CAWorkerThread::returnRequest();
        urlQueue->requeue(url);
        return;
    case Next::Parked: return;
    case Next::Variant:
    case Next::Done: delete url;
    }
}

// Fetches a URL at once on a new connection, unless the run is over.
void fetchAgain(const Client &client, CAURL *url, std::uint32_t run)
{
    if (waitForBudget(client, run)) {
        return fetch(client, url, run);
    }
    tellAllUnrequested(url, CAFailure::Stopped);
    delete url;
}

// Retries a URL: the first time at once on a new connection, unless the run is over, and later
// behind the other URLs in the queue.
void retry(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run)
{
    url->countRetry();
    CATrace("Worker...... will try URL \"%s\" again (%d of %d).\n", url->stringitize(),
            url->retries(), ac.retries);
    connection->renew();
    if (url->retries() == 1) {
        fetchAgain(client, url, run);
    } else {
        urlQueue->requeue(url);
    }
}

// Requests a URL again after its kept connection was reset; this does not count as a retry.
void resend(const Client &client, CAConnection *connection, CAURL *url, std::uint32_t run)
{
    url->setResent();
    CATrace("Worker...... the kept connection was reset, requesting URL \"%s\" once more.\n",
            url->stringitize());
    connection->renew();
    fetchAgain(client, url, run);
}

// Takes the next URL, if there still is one, and fetches it. The worker is marked busy before it
// dequeues: a thread that sees the queue empty because of that sees the worker busy.
void workOnNext(Client *worker, CASleepers::News seen)
{
    const Client &client = *worker;
    client.worker->makeBusy();
    worker->ticket = {};
    auto *const url = static_cast<CAURL *>(urlQueue->dequeue(&worker->ticket));
    const std::uint32_t run = currentRun;
    if (client.connection != nullptr) {
        client.connection->beginRun(run);
    }
    const bool blocked = url == nullptr && urlQueue->mayHoldBack();
    const bool parked = url != nullptr && ac.retryAfter != 0 && restingHosts.park(url, HTUptime());
    if (blocked || parked) {
        CAWorkerThread::returnRequest();
    } else if (url != nullptr) {
        fetch(client, url, run);
    }
    if (url != nullptr) {
        urlQueue->finished(client.ticket);
    }
    client.worker->makeIdle();
    if (!CAWorkerThread::isAnyBusy() && urlQueue->empty() != 0) {
        CAWakeMaster();
    }
    if (blocked) {
        waitForUrl(client, seen, kHeldBackMilliseconds);
    }
}

void onePass(Client *worker)
{
    const Client &client = *worker;
    HTWorkThread_svcThreadStartWork(1, client.context);
    if (ac.delayMs > 0) {
        nap(client, ac.delayMs);
    }
    const CASleepers::News seen = urlQueue->sleepers().news();
    if (urlQueue->empty() != 0) {
        CATrace("Worker...... thread %d has nothing to do.\n", client.index + 1);
        waitForUrl(client, seen, kPollMilliseconds);
    } else if (!proxyGate.isOpen() && client.connection != nullptr &&
               !client.connection->isOpen()) {
        waitForProxy(client, currentRun);
    } else if (waitForBudget(client)) {
        workOnNext(worker, seen);
    }
    HTWorkThread_svcThreadEndWork(1, client.context);
}

}  // namespace

void CATellUnreached(CAURL *url)
{
    tellAllUnrequested(url, CAFailure::Connect);
}

void *ClientThread(void *arg)
{
    const auto index = static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(arg));
    CATrace("Worker...... thread %d starting.\n", index + 1);
    HTThreadContext *const context = HTWorkThread_threadCreate(1);
    HTBlockSignals();
    Client client{.worker = workerThreads[index],
                  .index = index,
                  .context = context,
                  .connection = nullptr,
                  .ticket = {},
                  .pace = CANewClientPace(index)};
    if (!connectsPerUrl()) {
        makeConnection(&client);
    }
    while (client.keepsGoing()) {
        onePass(&client);
    }
    HTWorkThread_threadExit(1, context);
    client.worker->notRunning();
    if (!CAWorkerThread::isAnyRunning()) {
        CAWakeMaster();
    }
    if (client.connection != nullptr) {
        client.connection.reset();
        CAWorkerThread::releaseAConnection();
    }
    // Kept: numbered from 0, unlike all other lines, for readers of the trace.
    CATrace("Worker...... thread %d exiting.\n", index);
    return nullptr;
}
