#pragma once

#include <QString>

class QNetworkReply;

/// What a server's answer means.
namespace ServerAnswer {

constexpr int notFound = 404;

/// The status of the answer, 0 when there is none.
int statusOf(const QNetworkReply &reply);

bool isSuccess(int status);

/// True for the answers of a server that has refused to change anything.
bool isRefusal(int status);

/// Why a finished reply is no success; empty when it is one. `received` is the size of a body that was kept.
QString failureOf(const QNetworkReply &reply, qint64 received = -1);

} // namespace ServerAnswer
