#include "repository/DeleteClient.h"

#include <QNetworkReply>

DeleteClient::DeleteClient(QNetworkAccessManager &manager) : networkManager(manager) {}

int DeleteClient::request(const QNetworkRequest &networkRequest)
{
    const int id = ++lastId;
    QNetworkReply *reply = networkManager.deleteResource(networkRequest);
    connect(reply, &QNetworkReply::sslErrors, this, &DeleteClient::sslErrors);
    connect(reply, &QNetworkReply::finished, this, [this, reply, id] { finish(*reply, id); });
    return id;
}

void DeleteClient::finish(QNetworkReply &reply, int id)
{
    reply.deleteLater();
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const bool cutOff = reply.error() == QNetworkReply::OperationCanceledError ||
                        reply.error() == QNetworkReply::TimeoutError;
    const bool answered = status.isValid() && !cutOff;
    if (answered) {
        const QString reason = reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
        Q_EMIT responseHeaderReceived({status.toInt(), reason});
    } else {
        lastError = reply.error();
        lastErrorText = reply.errorString();
    }
    Q_EMIT requestFinished(id, !answered);
}
