#include "repository/ServerAnswer.h"

#include "repository/TransferWatch.h"

#include <QNetworkReply>
#include <QNetworkRequest>

namespace ServerAnswer {

int statusOf(const QNetworkReply &reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

bool isSuccess(int status)
{
    return status >= 200 && status <= 299;
}

bool isRefusal(int status)
{
    constexpr int serviceUnavailable = 503;
    constexpr int insufficientStorage = 507;
    return (status >= 400 && status <= 499) || status == serviceUnavailable || status == insufficientStorage;
}

/// After a time-out the status may still say 200.
QString failureOf(const QNetworkReply &reply, qint64 received)
{
    if (QString reason = TransferWatch::reasonOf(reply); !reason.isEmpty()) {
        return reason;
    }
    if (reply.error() != QNetworkReply::NoError) {
        return reply.errorString();
    }
    const int status = statusOf(reply);
    if (!isSuccess(status)) {
        return QString("The server answered with status %1").arg(status);
    }
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    const bool plain = !reply.hasRawHeader("Content-Encoding");
    if (received >= 0 && plain && announced.isValid() && announced.toLongLong() != received) {
        return "The server sent fewer bytes than announced";
    }
    return {};
}

} // namespace ServerAnswer
