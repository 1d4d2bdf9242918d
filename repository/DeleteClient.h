#pragma once

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QObject>
#include <QSslError>

class QNetworkReply;

/// First line of a server's answer.
struct HttpResponseHeader
{
    int statusCode = 0;
    QString reasonPhrase;
};

/// Carries DELETE requests. For each request: `responseHeaderReceived` when the server has answered, then
/// `requestFinished`, whose `error` is true when no complete answer came.
class DeleteClient : public QObject
{
    Q_OBJECT

public:
    /// `manager` carries the requests and must outlive the client.
    explicit DeleteClient(QNetworkAccessManager &manager);

    /// The id of the request, counted from 1.
    int request(const QNetworkRequest &networkRequest);

    QString errorString() const { return lastErrorText; }
    int error() const { return lastError; }

Q_SIGNALS:
    void responseHeaderReceived(const HttpResponseHeader &header);
    void requestFinished(int id, bool error);
    void sslErrors(const QList<QSslError> &errors);

private:
    void finish(QNetworkReply &reply, int id);

    QNetworkAccessManager &networkManager;
    int lastId = 0;
    int lastError = 0;
    QString lastErrorText;
};
