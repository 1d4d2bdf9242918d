#include "repository/HttpQueue.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr long mostConnections = 6;
constexpr long mostStreams = 100;
constexpr int mostSuspicions = 3;
constexpr int badRequest = 400;
constexpr std::chrono::milliseconds longestRest = 5ms;
constexpr std::chrono::milliseconds longestWait = 500ms; ///< while something is under way
constexpr std::chrono::milliseconds idleWait = 1h;

/// The connection was lost, or could not be made.
bool isLost(int code)
{
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_HTTP2:
    case CURLE_PARTIAL_FILE:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2_STREAM:
        return true;
    default:
        return false;
    }
}

} // namespace

HttpQueue::HttpQueue(const HttpSettings &settings, Done done)
    : settings(settings), done(std::move(done)), sessions(curl().share_init())
{
    curl().share_setopt(sessions, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    connectAfresh();
}

HttpQueue::~HttpQueue()
{
    clear();
    curl().multi_cleanup(multi);
    curl().share_cleanup(sessions);
}

/// Without any connection that stands. Nothing may be under way.
void HttpQueue::connectAfresh()
{
    CURLM *const before = std::exchange(multi, curl().multi_init());
    curl().multi_cleanup(before);
    curl().multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, mostConnections);
    curl().multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, mostConnections);
    curl().multi_setopt(multi, CURLMOPT_MAX_CONCURRENT_STREAMS, mostStreams);
    mostAtOnce = 1;
}

void HttpQueue::add(quint64 number, const HttpRequest &request)
{
    waiting.push_back({number, request});
}

void HttpQueue::clear()
{
    waiting.clear();
    while (!running.empty()) {
        take(running.begin()->first);
    }
    server = server == Server::Suspected ? Server::Answers : server;
}

HttpQueue::Running HttpQueue::take(CURL *handle)
{
    curl().multi_remove_handle(multi, handle);
    return std::move(running.extract(handle).mapped());
}

quint64 HttpQueue::advance()
{
    const quint64 before = steps;
    beginWaiting();
    int left = 0;
    curl().multi_perform(multi, &left);
    while (const CURLMsg *message = curl().multi_info_read(multi, &left)) {
        if (message->msg == CURLMSG_DONE) {
            complete(message->easy_handle, message->data.result);
        }
    }
    for (const auto &[handle, one] : running) {
        steps += static_cast<quint64>(one.transfer->takeMoved());
    }
    // An upload whose window is used up makes the library go round and round.
    rest = steps != before ? 0ms : std::min(rest + 1ms, longestRest);
    if (steps != before) {
        lastMoved = HttpTransfer::Clock::now();
    }
    judgeSilence();
    return steps - before;
}

void HttpQueue::wait(int wakeUp)
{
    curl_waitfd other = {.fd = wakeUp, .events = CURL_WAIT_POLLIN, .revents = 0};
    std::this_thread::sleep_for(rest);
    const auto patience =
        std::clamp<std::chrono::milliseconds>(settings.inactivityLimit / 8, 1ms, longestWait);
    const bool begins = server != Server::Suspected && running.size() < mostAtOnce && !waiting.empty();
    const auto limit = running.empty() ? idleWait : patience;
    curl().multi_poll(multi, &other, 1, begins ? 0 : static_cast<int>(limit.count()), nullptr);
}

void HttpQueue::beginWaiting()
{
    while (server != Server::Suspected && running.size() < mostAtOnce && !waiting.empty()) {
        const Job job = std::move(waiting.front());
        waiting.pop_front();
        if (job.request.asksServer) {
            server = Server::Answers;
            suspicions = 0;
        }
        if (server == Server::Gone) {
            ++steps;
            done(job.number, {.text = "The server does not answer any more", .givenUp = true});
        } else {
            begin(job);
        }
    }
}

void HttpQueue::begin(const Job &job)
{
    if (running.empty()) {
        lastMoved = HttpTransfer::Clock::now();
    }
    auto transfer = std::make_unique<HttpTransfer>(job.request, settings);
    CURL *const handle = transfer->handle();
    curl().easy_setopt(handle, CURLOPT_SHARE, sessions);
    if (job.number == 0 || job.anew) {
        transfer->connectAnew();
    }
    running.emplace(handle, Running{job, std::move(transfer)});
    curl().multi_add_handle(multi, handle);
}

void HttpQueue::complete(CURL *handle, CURLcode code)
{
    const Running ended = take(handle);
    HttpResult result = ended.transfer->resultOf(code);
    result.wasSent = result.wasSent || ended.job.wasSent;
    ++steps;
    if (ended.job.number == 0) { // the question whether the server is there
        server = Server::Answers;
        if (result.status == 0) {
            giveUp(result.text);
        }
        return;
    }
    if (code == CURLE_OK) {
        suspicions = 0;
        learnFrom(ended);
    }
    if (!repeat(ended, result)) {
        conclude(ended, result);
    }
}

void HttpQueue::conclude(const Running &ended, HttpResult result)
{
    if (isLost(result.code) && ended.job.request.asksServer && result.status == 0) {
        giveUp(result.text);
    } else if (isLost(result.code)) {
        suspect(result.text);
    }
    done(ended.job.number, result);
}

void HttpQueue::learnFrom(const Running &ended)
{
    long version = 0;
    curl().easy_getinfo(ended.transfer->handle(), CURLINFO_HTTP_VERSION, &version);
    mostAtOnce = version == CURL_HTTP_VERSION_2_0 ? mostStreams : mostConnections;
}

/// Ours may be carried out twice. A stream that a server refuses may come back with too short a body.
bool HttpQueue::repeat(const Running &ended, const HttpResult &result)
{
    const bool cutShort = result.status == badRequest && ended.job.request.method == HttpRequest::Put &&
                          mostAtOnce == static_cast<size_t>(mostStreams);
    if (ended.job.repeated || server == Server::Gone || (!isLost(result.code) && !cutShort)) {
        return false;
    }
    waiting.push_front(
        {ended.job.number, ended.job.request, true, result.wasSent, result.code == CURLE_SEND_ERROR});
    return true;
}

void HttpQueue::suspect(const QString &why)
{
    if (server != Server::Answers) {
        return;
    }
    if (++suspicions > mostSuspicions) {
        giveUp(why);
        return;
    }
    server = Server::Suspected;
    begin({.number = 0, .request = {.url = settings.baseUrl, .asksServer = true}});
}

void HttpQueue::judgeSilence()
{
    const auto now = HttpTransfer::Clock::now();
    const size_t shares = running.size();
    const QString silent = QString("Nothing has moved for %1 s")
                               .arg(std::chrono::duration<double>(settings.inactivityLimit).count());
    bool allSilent = now - lastMoved >= settings.inactivityLimit;
    std::vector<CURL *> ending;
    for (const auto &[handle, one] : running) {
        const bool isSilent = one.transfer->isSilent(shares);
        allSilent = allSilent || (isSilent && shares == 1);
        if (allSilent || isSilent || one.transfer->isTooSlow(shares)) {
            ending.push_back(handle);
        }
    }
    for (CURL *const handle : ending) {
        if (!running.contains(handle)) {
            continue;
        }
        HttpResult result = running.at(handle).transfer->resultOf(CURLE_OPERATION_TIMEDOUT);
        const Running ended = take(handle);
        result.status = 0;
        result.wasSent = result.wasSent || ended.job.wasSent;
        result.text = allSilent || result.text.isEmpty() ? silent : result.text;
        ++steps;
        if (ended.job.number == 0) {
            server = Server::Answers;
            giveUp(silent);
        } else if (!allSilent || !repeat(ended, result)) {
            done(ended.job.number, result);
        }
    }
    if (allSilent && !ending.empty() && running.empty() && server == Server::Answers) {
        connectAfresh();
        lastMoved = now;
        suspect(silent);
    }
}

/// Who asks for the server himself has not asked yet, and still will.
void HttpQueue::giveUp(const QString &why)
{
    server = Server::Gone;
    std::vector<Job> lost;
    while (!running.empty()) {
        Running ended = take(running.begin()->first);
        ended.job.wasSent = true;
        lost.push_back(ended.job);
    }
    std::deque<Job> asking;
    for (const Job &job : std::exchange(waiting, {})) {
        if (job.request.asksServer && !job.repeated) {
            asking.push_back(job);
        } else {
            lost.push_back(job);
        }
    }
    waiting = std::move(asking);
    connectAfresh();
    const QString text = "The server does not answer any more: " + why;
    for (const Job &job : lost) {
        ++steps;
        done(job.number, {.text = text, .wasSent = job.wasSent, .givenUp = true});
    }
}
