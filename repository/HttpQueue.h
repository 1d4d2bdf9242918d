#pragma once

#include "repository/HttpTransfer.h"

#include <QtGlobal>

#include <deque>
#include <functional>
#include <map>
#include <memory>

/// The requests of one thread to one server: as many at once as its protocol bears, each repeated once when
/// it got lost, all given up when the server is gone.
///
/// The first request goes alone, and shows whether the server speaks HTTP/2: then up to 100 share one
/// connection, else up to six have one each. A connection that is lost, and 30 s in which nothing moves, make
/// the server suspected: it is asked whether it is there, and when it does not answer that within 30 s
/// either, everything fails at once, and goes on doing so until somebody asks for the server itself.
class HttpQueue
{
public:
    using Done = std::function<void(quint64 number, const HttpResult &)>;

    /// The settings must outlive the queue. `done` may add requests.
    HttpQueue(const HttpSettings &settings, Done done);
    ~HttpQueue();

    HttpQueue(const HttpQueue &) = delete;
    HttpQueue &operator=(const HttpQueue &) = delete;

    void add(quint64 number, const HttpRequest &request);
    /// Forget everything that is waiting or under way.
    void clear();

    /// Advance everything as far as it goes without waiting. What has moved: bytes, and steps of requests.
    quint64 advance();

    /// Wait until something may advance, or until that descriptor can be read.
    void wait(int wakeUp);

private:
    struct Job
    {
        quint64 number = 0;
        HttpRequest request;
        bool repeated = false;
        bool wasSent = false; ///< in an attempt before
        bool anew = false;    ///< on a connection of its own: the last one was dead already
    };
    struct Running
    {
        Job job;
        std::unique_ptr<HttpTransfer> transfer;
    };
    enum class Server { Answers, Suspected, Gone };

    void connectAfresh();
    void beginWaiting();
    void begin(const Job &job);
    void complete(CURL *handle, CURLcode code);
    void conclude(const Running &ended, HttpResult result);
    bool repeat(const Running &ended, const HttpResult &result);
    void learnFrom(const Running &ended);
    void suspect(const QString &why);
    void judgeSilence();
    void giveUp(const QString &why);
    Running take(CURL *handle);

    const HttpSettings &settings;
    Done done;
    CURLSH *sessions;
    CURLM *multi = nullptr;
    std::deque<Job> waiting;
    std::map<CURL *, Running> running;
    size_t mostAtOnce = 1;
    Server server = Server::Answers;
    int suspicions = 0; ///< since the last answer
    quint64 steps = 0;
    std::chrono::milliseconds rest = {};
    HttpTransfer::Clock::time_point lastMoved = {};
};
