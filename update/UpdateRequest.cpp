#include "update/UpdateRequest.h"

#include <QNetworkRequest>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace corvane {

QNetworkRequest updateRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    return request;
}

bool isAcceptedFeed(const QUrl &feed)
{
    return feed.scheme() == "https"_L1;
}

} // namespace corvane
